// Reading of views from records.
#include "view_record.h"

#include <scansteps/error.h>
#include <scansteps/texture.h>
#include <scansteps/vertex_lists.h>

#include <Eigen/Geometry>
#include <Eigen/SVD>
#include <cmath>
#include <numbers>
#include <numeric>

namespace scansteps::scan {

std::optional<Pose> poseOf(const varitype& record, const char* step)
{
    if (!record.has("pose")) return {};
    const varitype entry = record["pose"];
    const Array& array = entry.as<Array>();
    if (!array.hasShape(Kind::Float, 4, 4)) failf("%s: \"pose\" is no 4 x 4 array of float elements", step);
    const Eigen::Matrix4d matrix =
        Eigen::Map<const Eigen::Matrix<float, 4, 4, Eigen::RowMajor>>(array.elements<float>().data())
            .cast<double>();
    const Eigen::Matrix3d rotation = matrix.topLeftCorner<3, 3>();
    const bool isRigid = matrix.allFinite() && matrix.row(3) == Eigen::RowVector4d(0, 0, 0, 1) &&
                         (rotation * rotation.transpose() - Eigen::Matrix3d::Identity()).norm() < 1e-3 &&
                         rotation.determinant() > 0;
    if (!isRigid) failf("%s: \"pose\" is no rotation and translation", step);
    // Floats keep angles to 1e-7; the nearest rotation is exact.
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(rotation, Eigen::ComputeFullU | Eigen::ComputeFullV);
    return Pose{svd.matrixU() * svd.matrixV().transpose(), matrix.topRightCorner<3, 1>()};
}

Array poseArray(const Pose& pose)
{
    Array array(Kind::Float, 4, 4);
    Eigen::Map<Eigen::Matrix<float, 4, 4, Eigen::RowMajor>> matrix(array.elements<float>().data());
    matrix.setIdentity();
    matrix.topLeftCorner<3, 3>() = pose.rotation.cast<float>();
    matrix.topRightCorner<3, 1>() = pose.translation.cast<float>();
    return array;
}

RecordMesh::RecordMesh(const varitype& record, const char* step)
{
    if (!record.has("tria")) failf("%s: the record has no \"tria\"; smesh makes it from points", step);
    tria_ = record["tria"];
    mesh.vertices = floatList(tria_, "Vertices", 3);
    mesh.indices = indexList(tria_, "Indices", 3);
    if (tria_.has("Tricolors")) mesh.colours = floatList(tria_, "Tricolors", 3);
    if (!mesh.colours.empty() && mesh.colours.size() != mesh.indices.size())
        failf("%s: \"Tricolors\" has another number of entries than \"Indices\"", step);
    const std::size_t count = mesh.vertices.size() / 3;
    for (std::size_t i = 0; i < mesh.indices.size(); ++i)
        if (mesh.indices[i] >= count)
            failf("%s: \"Indices\": triangle %zu names vertex %u, but there are %zu", step, i / 3,
                  mesh.indices[i], count);
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i)
        if (!std::isfinite(mesh.vertices[i])) failf("%s: \"Vertices\": entry %zu is not finite", step, i / 3);
    findSigma(record);
}

void RecordMesh::findSigma(const varitype& record)
{
    if (!record.has("sigma") || !record.has("index") || !tria_.has("Pixels")) return;
    sigmaEntry_ = record["sigma"];
    indexEntry_ = record["index"];
    const Array& grid = indexEntry_.as<Array>();
    const auto sigma = sigmaEntry_.as<Array>().elements<float>();
    const auto index = grid.elements<std::int32_t>();
    const auto pixels = floatList(tria_, "Pixels", 2);
    if (pixels.size() / 2 != mesh.vertices.size() / 3) return;
    for (std::size_t n = 0; n < pixels.size(); n += 2) {
        const float x = pixels[n], y = pixels[n + 1];
        if (!(x >= 0 && y >= 0 && x < float(grid.dim(0)) && y < float(grid.dim(1)))) break;
        const std::size_t at = std::size_t(y) * grid.dim(0) + std::size_t(x);
        if (at >= index.size() || index[at] < 0 || std::size_t(index[at]) >= sigma.size()) break;
        const float value = sigma[std::size_t(index[at])];
        if (!(value > 0)) break;
        sigma_.push_back(value);
    }
    if (sigma_.size() == mesh.vertices.size() / 3) mesh.sigma = sigma_;
}

Array pictureOf(const varitype& record, bool isVideo, const char* step)
{
    if (!record.has("handle")) return {};
    const Array& frame = pixelsOf(record["handle"].as<std::int32_t>());
    if (frame.kind() == Kind::Uchar && frame.dim(0) % 3 == 0 && frame.dim(2) == 1) return frame;
    if (frame.kind() != Kind::Ushort || frame.dim(2) != 1)
        failf("%s: a frame of %u x %u x %u %s elements is no picture", step, frame.dim(0), frame.dim(1),
              frame.dim(2), kindName(frame.kind()));
    std::vector<std::size_t> all(frame.size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    const std::vector<float> colours =
        coloursOf(frame, isVideo ? FrameCoding::Yuyv16 : FrameCoding::Offset16, all);
    Array picture(Kind::Uchar, 3 * frame.dim(0), frame.dim(1));
    std::ranges::transform(colours, picture.elements<std::uint8_t>().begin(),
                           [](float v) { return std::uint8_t(std::clamp(v, 0.0F, 255.0F)); });
    return picture;
}

Pose stageMotion(const Stage& stage, int steps)
{
    if (const auto* linear = std::get_if<LinearStage>(&stage))
        return {Eigen::Matrix3d::Identity(), steps * linear->step * linear->direction};
    const auto& table = std::get<Turntable>(stage);
    const double angle = steps * table.step * std::numbers::pi / 180;
    const Eigen::Matrix3d rotation = Eigen::AngleAxisd(angle, table.axis).toRotationMatrix();
    return {rotation, table.point - rotation * table.point};
}

}  // namespace scansteps::scan
