// Decodes the entropy-coded part of a baseline JPEG image into its planes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "jpeg/huffman.h"

namespace scansteps::jpeg {

/// A component of a scan and its destination plane.
struct JpegScanComponent
{
    int horizontal = 1;  ///< blocks per MCU, 1 or 2 in each direction
    int vertical = 1;
    int dcTable = 0;
    int acTable = 0;
    alignas(64) std::array<std::int16_t, 64> quant{};  ///< in the inverse DCT's paired order
    std::uint8_t* plane = nullptr;                     ///< planeWidth * planeHeight samples
    int planeWidth = 0;
    int planeHeight = 0;
    int width = 0;  ///< samples before averaging
    int height = 0;
    int averageX = 1;  ///< samples averaged to one of the plane, 1 or 2 in each direction
    int averageY = 1;
};

/// The look-up tables of a scan.
struct JpegScanTables
{
    JpegScanTables(const std::array<HuffmanSpec, 2>& dcSpecs, const std::array<HuffmanSpec, 2>& acSpecs)
        : dc{DcTable(dcSpecs[0]), DcTable(dcSpecs[1])}, ac{AcTable(acSpecs[0]), AcTable(acSpecs[1])}
    {
    }

    std::array<DcTable, 2> dc;
    std::array<AcTable, 2> ac;
};

/// Input of decodeJpegScan(). All sizes must have been checked.
struct JpegScan
{
    std::span<const std::uint8_t> data;  ///< starts with the first entropy-coded byte
    std::array<JpegScanComponent, 3> components;
    int mcusX = 0;
    int mcusY = 0;
    int restartInterval = 0;
    const JpegScanTables* tables = nullptr;
};

enum class JpegScanResult
{
    kOk,
    kEndOfData,
    kBadCode,
    kNoRestartMarker
};

/// Decodes all MCUs. Stops at the first damage. Accesses no memory outside data and planes for any input.
JpegScanResult decodeJpegScan(const JpegScan& scan);

}  // namespace scansteps::jpeg
