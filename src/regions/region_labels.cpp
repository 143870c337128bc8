// Flood fill of each region from its seed pixel.
#include "regions/region_labels.h"

#include <algorithm>
#include <vector>

#include "core/sample_values.h"
#include "scansteps/error.h"

namespace scansteps::regions {

void labelStableRegions(grey::GreyView image, std::span<const Region> regions, bool eight,
                        std::span<std::uint16_t> labels)
{
    const std::size_t pixels = std::size_t(image.width) * std::size_t(image.height);
    if (labels.size() < pixels) fail("label frame too small");
    std::fill_n(labels.begin(), pixels, kOffset16Zero);
    std::vector<std::int32_t> owner(pixels, -1);
    std::vector<std::int32_t> todo;
    for (std::size_t k = 0; k < regions.size(); ++k) {
        const auto label = std::uint16_t(kOffset16Zero + std::min<std::size_t>(k + 1, 32767));
        const auto visit = [&](int x, int y) {
            if (x < 0 || y < 0 || x >= image.width || y >= image.height) return;
            const std::size_t place = std::size_t(y) * std::size_t(image.width) + std::size_t(x);
            if (owner[place] == std::int32_t(k) || image.row(y)[x] > regions[k].level_) return;
            owner[place] = std::int32_t(k);
            labels[place] = label;
            todo.push_back(std::int32_t(place));
        };
        visit(regions[k].pixel_ % image.width, regions[k].pixel_ / image.width);
        while (!todo.empty()) {
            const int x = todo.back() % image.width;
            const int y = todo.back() / image.width;
            todo.pop_back();
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    if (eight || dx * dy == 0) visit(x + dx, y + dy);
        }
    }
}

}  // namespace scansteps::regions
