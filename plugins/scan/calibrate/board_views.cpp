#include "board_views.h"

#include <fmt/format.h>
#include <plugins/images/decode.h>
#include <plugins/scan/checked_json.h>
#include <scansteps/error.h>

namespace scansteps::scan {

GreyImage readGrey(const std::string& name)
{
    const std::string bytes = readTextFile(name, "calibrate");
    imageio::Picture picture;
    try {
        picture = imageio::openPictures({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()})
                      ->next({});
    } catch (const imageio::DecodeError& error) {
        failf("calibrate: %.300s: %.300s", name.c_str(), error.what());
    }
    if (!picture.damage.empty()) failf("calibrate: %.300s: %.300s", name.c_str(), picture.damage.c_str());
    GreyImage grey{picture.width(), picture.height(), {}};
    if (picture.isGrey()) {
        for (const std::uint16_t sample : picture.pixels.elements<std::uint16_t>())
            grey.values.push_back(static_cast<float>(sample >= 32768 ? sample - 32768 : sample));
    } else {
        const auto rgb = picture.pixels.elements<std::uint8_t>();
        for (std::size_t i = 0; i + 2 < rgb.size(); i += 3)
            grey.values.push_back(
                static_cast<float>(0.299 * rgb[i] + 0.587 * rgb[i + 1] + 0.114 * rgb[i + 2]));
    }
    return grey;
}

PlaneView viewOf(const Board& board, double pitch)
{
    PlaneView view;
    for (const BoardCorner& corner : board.corners) {
        view.plane.push_back(pitch * corner.index.cast<double>());
        view.pixels.push_back(corner.pixel);
    }
    return view;
}

std::vector<BoardPicture> findBoards(const std::vector<std::string>& names, Eigen::Vector2i& size)
{
    std::vector<BoardPicture> pictures;
    for (const std::string& name : names) {
        const GreyImage image = readGrey(name);
        const Eigen::Vector2i found(image.width, image.height);
        if (pictures.empty()) size = found;
        BoardPicture& picture = pictures.emplace_back(BoardPicture{name, {}, {}});
        if (found != size) {
            picture.reason =
                fmt::format("{} x {} pixels instead of {} x {}", found.x(), found.y(), size.x(), size.y());
            continue;
        }
        picture.board = findBoard(image);
        if (picture.board.corners.empty()) picture.reason = "no board found";
        if (picture.board.mirrored) picture.reason = "the board is mirrored: the picture was flipped";
    }
    return pictures;
}

}  // namespace scansteps::scan
