// What a projector throws: the grey levels of its pixels, which are squares, blurred by its point spread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace scansteps::simulate {

/// A picture to project: grey levels 0 to 255, rows from top to bottom.
struct GreyPicture
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> grey;
};

/// How a projector shows a picture.
struct ProjectorResponse
{
    double gamma = 1;   ///< light = (grey / 255)^gamma
    double spread = 0;  ///< standard deviation of the Gaussian point spread, in projector pixels
    double black = 0;   ///< light of black as a share of that of white
};

/// The light of one picture as a continuous function of the place in projector pixels; (0, 0) is the centre
/// of the first pixel. Pictures that change along one direction only, as usual, are evaluated from a table,
/// as if they went on beyond their ends in the other.
class ProjectedPicture
{
  public:
    ProjectedPicture(const GreyPicture& picture, const ProjectorResponse& response);
    /// 0 (no light) to 1 (white). Beyond the picture there is no light.
    float at(float u, float v) const;

  private:
    static constexpr int kPerPixel =
        64;  ///< entries a pixel of the table; their interpolation is off by < 1e-4
    float fromTable(float x) const;

    int width_, height_;
    ProjectorResponse response_;
    bool alongRows_ = false;     ///< the table runs along u
    bool alongColumns_ = false;  ///< the table runs along v
    std::vector<float> table_;   ///< starts half a pixel before the first one, minus the reach of the spread
    std::vector<float> pixels_;  ///< light of every pixel where there is no table
    int reach_;                  ///< of the point spread, in whole pixels
};

}  // namespace scansteps::simulate
