// scansteps devices: lists the cameras of this machine with their formats and sizes.
#include <fmt/format.h>

#include "commands.h"
#include "library/json_values.h"
#include "output.h"
#include "scansteps/cameras.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

using Ordered = nlohmann::ordered_json;

Ordered jsonOf(const CameraMode& mode)
{
    Ordered json = {{"format", mode.format}, {"width", mode.width}, {"height", mode.height}};
    if (mode.rate > 0) json["rate"] = mode.rate;
    return json;
}

Ordered jsonOf(const CameraInfo& camera)
{
    Ordered json = {{"index", camera.index}, {"name", camera.name}};
    if (!camera.path.empty()) json["path"] = camera.path;
    json["modes"] = Ordered::array();
    for (const CameraMode& mode : cameraModes(camera)) json["modes"].push_back(jsonOf(mode));
    return json;
}

void print(const CameraInfo& camera)
{
    answer("{}  {}{}", camera.index, camera.name, camera.path.empty() ? "" : "  " + camera.path);
    for (const CameraMode& mode : cameraModes(camera))
        answer("     {} {} x {}{}", mode.format, mode.width, mode.height,
               mode.rate > 0 ? fmt::format(", up to {:g} frames a second", mode.rate) : "");
}

}  // namespace

int devices(const DevicesOptions& options)
{
    const auto cameras = listCameras();
    if (options.json) {
        Ordered list = Ordered::array();
        for (const CameraInfo& camera : cameras) list.push_back(jsonOf(camera));
        answerLines(list.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
        return kEnded;
    }
    for (const CameraInfo& camera : cameras) print(camera);
    if (cameras.empty()) answer("no camera found");
    answer("Without a camera: capture.dev_name=test:bars, test:gradient, test:moving or file:NAME0000.jpg");
    return kEnded;
}

}  // namespace scansteps::host
