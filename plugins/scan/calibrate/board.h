// Finds a checkerboard in a picture.
//
// The board may be partly visible. Three dots in squares around its middle tell where on the board a corner
// lies and how the board is turned: one in a square A, one in the next square along x, one in the second next
// square along y. Without them corners are counted from wherever the visible part begins.
#pragma once

#include <Eigen/Core>
#include <vector>

#include "grey_image.h"

namespace scansteps::scan {

/// An inner corner of the board and its place in the picture.
struct BoardCorner
{
    Eigen::Vector2i index;  ///< in squares; (0, 0) is the corner of square A with the lowest x and y
    Eigen::Vector2d pixel;
};

struct Board
{
    std::vector<BoardCorner> corners;
    bool located = false;   ///< the dots were seen: `index` means the same corner in every picture
    bool mirrored = false;  ///< the dots are those of a picture that was flipped; `index` is corrected for it
};

/// Needs at least 3 × 3 corners whose squares are some 6 pixels wide; gives no corners if there are fewer.
Board findBoard(const GreyImage& image);

/// Where four squares meet near `start`, to a fraction of a pixel: the point to which the edges in a window
/// of ± radius pixels lead (Förstner, Gülch, "A fast operator for detection and precise location of distinct
/// points", 1987). Far from `start` or NaN if there is none.
Eigen::Vector2d refineCorner(const GreyImage& image, Eigen::Vector2d start, double radius);

/// Candidates for corners, the strongest first: saddle points of the brightness with four quarters around
/// them.
std::vector<Eigen::Vector2d> cornerCandidates(const GreyImage& image);

/// Corners of `candidates` that form the largest grid, with indices from anywhere. Right-handed in the
/// picture: x to y turns from right to down.
std::vector<BoardCorner> largestGrid(const GreyImage& image, const std::vector<Eigen::Vector2d>& candidates);

}  // namespace scansteps::scan
