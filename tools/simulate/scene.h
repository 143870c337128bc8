// The scene to be simulated, as read from its JSON file.
#pragma once

#include <plugins/scan/calibration.h>

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "body.h"
#include "mesh.h"
#include "patterns.h"
#include "surface.h"

namespace scansteps::simulate {

struct Sensor
{
    int samples = 4;     ///< rays a pixel along each side
    double defocus = 0;  ///< standard deviation of the Gaussian blur, pixels
    double offset = 0;   ///< grey level without light
    double read = 0;     ///< standard deviation of the read noise, grey levels
    double shot = 0;     ///< variance of the shot noise a grey level of light
    bool colour = false;
};

/// Throws a series of pictures. Without `distance`, `white` is the difference of white and black, in grey
/// levels, at the brightest point that camera and projector both see in the first pose; else that on a white
/// surface at this distance which faces the projector.
struct PatternLight
{
    std::vector<GreyPicture> pictures;
    ProjectorResponse response;
    double white = 200;
    double distance = 0;
};

/// A plane of light that leaves `origin`. Each pose gives a picture without it and one with it.
struct LaserLight
{
    Eigen::Vector3d origin{0, 0, 0};
    double peak = 150;   ///< grey levels in the middle of the line on a white surface facing the origin
    double sigma = 0.2;  ///< of the Gaussian profile, millimetres, at any distance
    bool dark = true;    ///< whether there are pictures without it
};

/// A lamp at a point, of the same brightness at any distance.
struct LampLight
{
    Eigen::Vector3d origin{0, 0, 0};
    double level = 200;  ///< grey levels of a white surface that faces the lamp
};

using Light = std::variant<PatternLight, LaserLight, LampLight>;

struct Object
{
    std::string shape;
    std::shared_ptr<const Body> body;
    std::shared_ptr<const Mesh> mesh;  ///< of the shapes that have one
    scan::Pose pose;                   ///< object to frame coordinates
    Surface surface;
};

struct Scene
{
    scan::Calibration calibration;
    Sensor sensor;
    Light light;
    double ambient = 0;      ///< grey levels on a white surface
    int bounces = 0;         ///< rays a camera ray for light that comes by way of another surface
    std::uint64_t seed = 1;  ///< of the noise
    std::vector<Object> objects;
    std::vector<scan::Pose> poses;   ///< frame to camera coordinates, one a view
    std::vector<std::string> truth;  ///< names of the maps to write
};

/// Reads a scene. File names in it are relative to `folder`. Throws a C string that begins with "scene: " or
/// "calibration: " and the path of the value that does not conform.
Scene parseScene(std::string_view text, const std::string& folder);

extern const std::string_view kSceneSchema;

}  // namespace scansteps::simulate
