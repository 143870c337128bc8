// Continuations of a word that the user has begun to write: of settings, their values, and one-line
// pipelines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "scansteps/steps.h"

namespace scansteps::host {

struct Continuation
{
    std::string word, what;
};

/// Kinds of steps.
std::vector<Continuation> kindsLike(std::string_view begun);
/// A one-line pipeline whose last word is unfinished: kinds, settings of the step, their values. Each
/// continuation repeats what precedes it.
std::vector<Continuation> pipelinesLike(std::string_view begun);
/// PATH=VALUE for the kinds of a one-line pipeline; for all kinds where it names none.
std::vector<Continuation> assignmentsLike(std::string_view begun, std::string_view pipeline);

}  // namespace scansteps::host
