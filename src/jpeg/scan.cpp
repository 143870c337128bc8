// The MCU loop: decodes blocks, transforms them in groups and stores them in their planes.
#include "jpeg/scan.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "jpeg/block_store.h"
#include "jpeg/idct.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/scan.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
// foreach_target.h must precede the code that it repeats
#include "jpeg/bits-inl.h"
#include "jpeg/block-inl.h"
#include "jpeg/idct-inl.h"

HWY_BEFORE_NAMESPACE();
namespace scansteps::jpeg {
namespace HWY_NAMESPACE {

constexpr std::size_t kGroup = idct::GroupBlocks();
constexpr int kChunkMcus = 4;  // decoded before their inverse DCTs, enough to fill the widest vectors
static_assert(kChunkMcus % kGroup == 0);

/// Decodes kChunkMcus MCUs at a time into coefficients in the order of the inverse DCT, then transforms these
/// into the planes.
class ScanDecoder
{
  public:
    explicit ScanDecoder(const JpegScan& scan) : scan_(scan), feed_(scan.data.data(), scan.data.size())
    {
        for (std::size_t p = 0; p < 64; ++p) {
            const std::size_t position = pairedPosition(kJpegNaturalOrder[p]);
            place_[p] = std::uint16_t(position / 8 * kGroup * 8 + position % 8);
        }
        std::fill(place_ + 64, place_ + kPlaces, place_[63]);
        layOut();
    }

    JpegScanResult run();

  private:
    /// Location of one block of an MCU of the chunk.
    struct Slot
    {
        std::uint16_t offset;  ///< of its first coefficient in coefficients_
        std::uint8_t group;
        std::uint8_t component;
    };

    static constexpr int kMaxMcuBlocks = 6;
    static constexpr std::size_t kMaxGroups = kMaxMcuBlocks * kChunkMcus / kGroup;
    static constexpr std::size_t kGroupSize = 64 * kGroup;

    void layOut();
    JpegScanResult decodeMcus(BitReader& reader, int count);
    void transformMcus(int firstMcu, int count, int mcuRow);
    void transformRow(const JpegScanComponent& component, std::size_t group, int x, int y, int blocks);
    void transformGroup(const JpegScanComponent& component, std::size_t group, std::uint8_t* dst,
                        std::size_t stride);

    const JpegScan& scan_;
    EntropyFeed feed_;
    int blocks_ = 0;  ///< per MCU
    Slot slots_[kChunkMcus][kMaxMcuBlocks];
    std::uint16_t place_[kPlaces];
    std::uint16_t prediction_[3] = {};
    unsigned restartNumber_ = 0;
    int mcusToRestart_ = 0;
    std::uint8_t last_[kMaxGroups] = {};  ///< index of the last coefficient in any block of the group
    alignas(64) std::int16_t coefficients_[kMaxGroups * kGroupSize] = {};
};

// Horizontally adjacent blocks of a component share a group; groups are in the order of the planes.
void ScanDecoder::layOut()
{
    std::size_t firstGroup = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const JpegScanComponent& component = scan_.components[c];
        const int groupsInRow = component.horizontal * kChunkMcus / int(kGroup);
        for (int v = 0; v < component.vertical; ++v, firstGroup += std::size_t(groupsInRow))
            for (int h = 0; h < component.horizontal; ++h, ++blocks_)
                for (int mcu = 0; mcu < kChunkMcus; ++mcu) {
                    const auto x = std::size_t(mcu * component.horizontal + h);
                    const std::size_t group = firstGroup + x / kGroup;
                    slots_[mcu][blocks_] = {std::uint16_t(group * kGroupSize + x % kGroup * 8),
                                            std::uint8_t(group), std::uint8_t(c)};
                }
    }
}

JpegScanResult ScanDecoder::run()
{
    BitReader reader;
    feed_.start(reader);
    mcusToRestart_ = scan_.restartInterval > 0 ? scan_.restartInterval : std::numeric_limits<int>::max();
    for (int y = 0; y < scan_.mcusY; ++y)
        for (int x = 0; x < scan_.mcusX; x += kChunkMcus) {
            const int count = std::min(kChunkMcus, scan_.mcusX - x);
            const JpegScanResult result = decodeMcus(reader, count);
            if (result != JpegScanResult::kOk)
                return feed_.overrun(reader) ? JpegScanResult::kEndOfData : result;
            transformMcus(x, count, y);
        }
    return feed_.overrun(reader) ? JpegScanResult::kEndOfData : JpegScanResult::kOk;
}

JpegScanResult ScanDecoder::decodeMcus(BitReader& shared, int count)
{
    BitReader reader = shared;  // stays in registers
    JpegScanResult result = JpegScanResult::kOk;
    for (int mcu = 0; mcu < count && result == JpegScanResult::kOk; ++mcu) {
        if (mcusToRestart_ == 0) {
            BitReader copy = reader;  // so that the address of `reader` does not escape
            const bool found = !feed_.overrun(copy) && feed_.restart(copy, restartNumber_);
            reader = copy;
            if (!found) {
                result = JpegScanResult::kNoRestartMarker;
                break;
            }
            restartNumber_ = (restartNumber_ + 1) & 7U;
            mcusToRestart_ = scan_.restartInterval;
            std::fill_n(prediction_, 3, std::uint16_t{0});
        }
        --mcusToRestart_;
        for (int b = 0; b < blocks_; ++b) {
            const Slot slot = slots_[mcu][b];
            const JpegScanComponent& component = scan_.components[slot.component];
            if (HWY_UNLIKELY(reader.next > reader.limit)) {
                BitReader copy = reader;
                const bool more = feed_.check(copy);
                reader = copy;
                if (!more) {
                    result = JpegScanResult::kEndOfData;
                    break;
                }
            }
            const int last = DecodeBlock(reader, scan_.tables->dc[std::size_t(component.dcTable)],
                                         scan_.tables->ac[std::size_t(component.acTable)],
                                         prediction_[slot.component], coefficients_ + slot.offset, place_);
            if (last < 0) {
                result = JpegScanResult::kBadCode;
                break;
            }
            last_[slot.group] = std::max(last_[slot.group], std::uint8_t(last));
        }
    }
    shared = reader;
    return result;
}

void ScanDecoder::transformMcus(int firstMcu, int count, int mcuRow)
{
    std::size_t group = 0;
    for (const JpegScanComponent& component : scan_.components)
        for (int v = 0; v < component.vertical; ++v) {
            transformRow(component, group, firstMcu * component.horizontal * 8,
                         (mcuRow * component.vertical + v) * 8, count * component.horizontal);
            group += std::size_t(component.horizontal * kChunkMcus) / kGroup;
        }
}

/// Transforms horizontally adjacent blocks, the first at sample (x, y) of the component before averaging.
void ScanDecoder::transformRow(const JpegScanComponent& component, std::size_t group, int x, int y,
                               int blocks)
{
    constexpr int kWidth = int(kGroup) * 8;
    const bool direct = component.averageX == 1 && component.averageY == 1 && y + 8 <= component.height;
    const auto stride = std::size_t(component.planeWidth);
    for (; blocks > 0; blocks -= int(kGroup), ++group, x += kWidth) {
        if (direct && x + kWidth <= component.width) {
            transformGroup(component, group, component.plane + std::size_t(y) * stride + std::size_t(x),
                           stride);
            continue;
        }
        std::uint8_t samples[8 * kWidth];
        transformGroup(component, group, samples, kWidth);
        storeJpegSamples(component, samples, kWidth, x, y);
    }
}

void ScanDecoder::transformGroup(const JpegScanComponent& component, std::size_t group, std::uint8_t* dst,
                                 std::size_t stride)
{
    std::int16_t* coefficients = coefficients_ + group * kGroupSize;
    if (last_[group] == 0)
        idct::FillGroup(coefficients, component.quant.data(), dst, stride);
    else
        idct::InverseDctGroup(coefficients, component.quant.data(), dst, stride);
    last_[group] = 0;
}

JpegScanResult DecodeScan(const JpegScan& scan)
{
    return ScanDecoder(scan).run();
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::jpeg
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::jpeg {

HWY_EXPORT(DecodeScan);

JpegScanResult decodeJpegScan(const JpegScan& scan)
{
    return HWY_DYNAMIC_DISPATCH(DecodeScan)(scan);
}

}  // namespace scansteps::jpeg
#endif
