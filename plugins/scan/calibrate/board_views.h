// Boards in picture files.
#pragma once

#include <string>
#include <vector>

#include "board.h"
#include "zhang.h"

namespace scansteps::scan {

/// Reads a picture in any format of the image plug-in; colour becomes grey. Throws "calibrate: FILE: REASON".
GreyImage readGrey(const std::string& name);

/// The corners of a board with squares of `pitch` millimetres, as a view for calibration.
PlaneView viewOf(const Board& board, double pitch);

struct BoardPicture
{
    std::string name;
    std::string reason;  ///< why the picture is not used; empty if it is
    Board board;
};
/// Finds the board in each picture. A picture without one, flipped, or of another size than the first is not
/// used; the reason says so. `size` becomes that of the first.
std::vector<BoardPicture> findBoards(const std::vector<std::string>& names, Eigen::Vector2i& size);

}  // namespace scansteps::scan
