// The computation of step scale, which knows neither records nor frames.
#pragma once

#include <cstdint>
#include <span>

/// Multiplies offset 16-bit samples (value + 32768) by `factor`, in place. Results are truncated and kept in
/// range.
void multiplySamples(std::span<std::uint16_t> samples, float factor);
