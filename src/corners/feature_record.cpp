// Conversion of features to record entries and back.
#include "corners/feature_record.h"

#include <cmath>
#include <cstring>

#include "scansteps/error.h"
#include "scansteps/vertex_lists.h"

namespace scansteps::corners {
namespace {

constexpr std::uint32_t kWords = sizeof(CornerFeature) / sizeof(std::uint32_t);

}  // namespace

void insertFeatures(varitype& record, std::span<const CornerFeature> features,
                    std::span<const std::int32_t> indices)
{
    const auto count = std::uint32_t(features.size());
    Array places(Kind::Float, 2, count);
    Array attributes(Kind::Uint, kWords, count);
    Array numbers(Kind::Int, 1, count);
    const auto to = places.elements<float>();
    for (std::size_t i = 0; i < features.size(); ++i) {
        to[2 * i] = features[i].x;
        to[2 * i + 1] = features[i].y;
        numbers.elements<std::int32_t>()[i] = indices[i];
    }
    if (count > 0) std::memcpy(attributes.data(), features.data(), features.size_bytes());
    record.insert("vert", std::move(places));
    record.insert("vertAttr", std::move(attributes));
    record.insert("verti", std::move(numbers));
}

bool holdsFeatures(const varitype& record)
{
    return record.has("vertAttr");
}

std::vector<CornerFeature> featuresOf(const varitype& record)
{
    const varitype entry = record["vertAttr"];
    const Array& array = entry.as<Array>();
    const auto words = array.elements<std::uint32_t>();
    if (array.kind() != Kind::Uint || array.dim(0) != kWords || array.dim(2) != 1 ||
        words.size() != std::size_t{kWords} * array.dim(1))
        fail("vertAttr: not an array of 16 unsigned words a feature");
    std::vector<CornerFeature> features(array.dim(1));
    if (!features.empty()) std::memcpy(features.data(), words.data(), words.size_bytes());
    const auto places = floatList(record, "vert", 2);
    if (places.size() != 2 * features.size()) fail("vert: not as many places as vertAttr has features");
    for (std::size_t i = 0; i < features.size(); ++i) {
        features[i].x = places[2 * i];
        features[i].y = places[2 * i + 1];
    }
    for (const CornerFeature& f : features)
        if (!(std::abs(f.x) < 1e6F && std::abs(f.y) < 1e6F && f.size > 0 && f.size < 1e6F))
            fail("vert, vertAttr: a feature without a place");
    return features;
}

}  // namespace scansteps::corners
