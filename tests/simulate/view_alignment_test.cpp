// Registration of views: ray-cast views of the bust with noise against their true poses, in the kernel and in
// the program, and views that cannot be registered.
#include <plugins/scan/grid_mesh.h>
#include <plugins/scan/view_alignment.h>
#include <plugins/scan/view_record.h>
#include <tools/simulate/body.h>

#include <Eigen/Geometry>
#include <numbers>
#include <random>

#include "support/process.h"
#include "support/test.h"

namespace scansteps::scan {
namespace {

using Eigen::Vector3d;

constexpr double kDistance = 610;
constexpr int kViews = 8;

/// How finely views are sampled: the focal length in pixels; the bust fills 0.31 of it in height.
constexpr double kFocal = 800;

Pose turned(double degrees)
{
    return stageMotion(Turntable{Vector3d::UnitY(), {0, 0, kDistance}, degrees, {}}, 1);
}

Pose objectPose()
{
    Pose pose;
    pose.rotation << 0, 1, 0, 0, 0, -1, -1, 0, 0;
    pose.translation = {0, 0, kDistance};
    return pose;
}

/// Depths with noise of 0.04 mm on the grid of a camera's pixels.
GridMesh viewOf(const simulate::Body& body, const Pose& pose, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0, 0.04);
    const int width = int(0.36 * kFocal), height = int(0.36 * kFocal);
    const Pose toObject = (pose * objectPose()).inverse();
    std::vector<std::int32_t> index(std::size_t(width) * std::size_t(height), -1);
    std::vector<float> points;
    for (std::size_t i = 0; i < index.size(); ++i) {
        const Vector3d ray(int(i) % width - width / 2, int(i) / width - height / 2, kFocal);
        const auto hit = body.intersect({toObject.translation, toObject.rotation * ray / kFocal}, 1e9);
        if (!hit) continue;
        index[i] = std::int32_t(points.size() / 3);
        const Vector3d point = ray / kFocal * (hit->distance + noise(random));
        for (const double value : point) points.push_back(float(value));
    }
    return meshOfGrid({index, std::size_t(width), std::size_t(height), points, points}, {});
}

ViewMesh meshOf(const GridMesh& mesh)
{
    return {mesh.vertices, mesh.indices, {}, {}};
}

/// Off by 5 degrees about the object's middle and 10 mm, each view in another direction.
Pose disturbed(const Pose& pose, int view)
{
    std::mt19937 random(static_cast<unsigned>(view));
    std::normal_distribution<double> normal(0, 1);
    const auto direction = [&] {
        return Vector3d(normal(random), normal(random), normal(random)).normalized();
    };
    const Eigen::Matrix3d turn =
        Eigen::AngleAxisd(5 * std::numbers::pi / 180, direction()).toRotationMatrix();
    const Vector3d centre(0, 0, kDistance);
    return pose * Pose{turn, centre - turn * centre + 10 * direction()};
}

void expectNear(const Pose& pose, const Pose& truth, double degrees, double mm)
{
    const double angle = Eigen::AngleAxisd(pose.rotation * truth.rotation.transpose()).angle();
    const double shift = (pose * Vector3d(0, 0, kDistance) - truth * Vector3d(0, 0, kDistance)).norm();
    EXPECT_LT(angle * 180 / std::numbers::pi, degrees);
    EXPECT_LT(shift, mm);
}

TEST(ViewAlignment, findsThePosesOfEightViewsOfTheBust)
{
    const auto body = simulate::meshBody(simulate::bustMesh(190, 300, 300));
    ViewAlignment alignment({});
    for (int i = 0; i < kViews; ++i) {
        const Pose truth = turned(45 * i);
        const GridMesh mesh = viewOf(*body, truth, unsigned(i));
        const ViewFit fit = alignment.add(meshOf(mesh), i == 0 ? Pose() : disturbed(truth, i));
        EXPECT_EQ(fit.state, FitState::Good) << i;
    }
    const std::vector<ViewFit> fits = alignment.finish();
    for (int i = 0; i < kViews; ++i) {
        SCOPED_TRACE(i);
        expectNear(fits[std::size_t(i)].pose, turned(45 * i), 0.03, 0.03);
        EXPECT_GT(fits[std::size_t(i)].overlap, 0.5);
        EXPECT_LT(fits[std::size_t(i)].residual, 0.2);
    }
}

TEST(ViewAlignment, reportsAmbiguousViewsAndThoseWithoutOverlap)
{
    const auto sphere = simulate::sphereBody(60);
    ViewAlignment ambiguous({});
    ambiguous.add(meshOf(viewOf(*sphere, {}, 1)), {});
    const ViewFit turnedSphere = ambiguous.add(meshOf(viewOf(*sphere, turned(20), 2)), turned(20));
    EXPECT_EQ(turnedSphere.state, FitState::Ambiguous);

    const auto bust = simulate::meshBody(simulate::bustMesh(190, 300, 300));
    ViewAlignment apart({});
    apart.add(meshOf(viewOf(*bust, {}, 1)), {});
    EXPECT_EQ(apart.add(meshOf(viewOf(*bust, turned(180), 2)), turned(180)).state, FitState::NoOverlap);
    // Views in between join both.
    for (const int degrees : {60, 120}) {
        const GridMesh mesh = viewOf(*bust, turned(degrees), unsigned(degrees));
        EXPECT_EQ(apart.add(meshOf(mesh), turned(degrees)).state, FitState::Good);
    }
    const auto fits = apart.finish();
    EXPECT_EQ(fits[1].state, FitState::Good);
    expectNear(fits[1].pose, turned(180), 0.2, 0.2);
}

template <class T>
Array listOf(const std::vector<T>& values)
{
    Array array(kindOf<T>(), 3, std::uint32_t(values.size() / 3));
    std::ranges::copy(values, array.elements<T>().begin());
    return array;
}

TEST(ScanSicp, sendsTheViewsWithTheirPosesAtTheFlush)
{
    const TempDir folder;
    const std::string in = (folder.path() / "in.rec").string(), out = (folder.path() / "out.rec").string();
    const auto bust = simulate::meshBody(simulate::bustMesh(190, 300, 300));
    BIOfs file(in, BIOfs::Mode::Write);
    writeRecord(file, Struct{{"eventType", event::kInit}});
    for (const int i : {0, 1, 4}) {
        const GridMesh mesh = viewOf(*bust, turned(45 * i), unsigned(i));
        const Pose estimate = i == 0 ? Pose() : disturbed(turned(45 * i), i);
        writeRecord(
            file,
            Struct{{"eventType", event::kProcess},
                   {"pose", poseArray(estimate)},
                   {"tria", Struct{{"Vertices", listOf(mesh.vertices)}, {"Indices", listOf(mesh.indices)}}}});
    }
    writeRecord(file, Struct{{"eventType", event::kFlush}});
    file.close();
    const auto run = [&](const std::string& settings) {
        return runProgram("run \"readd load.name=" + in + " ! sicp " + settings +
                          " ! filesaver save.name=" + out + "\"");
    };
    EXPECT_THAT(run("sicp.memory=1").err, HasSubstr("needs more than sicp.memory = 1 MB"));
    const ProgramResult result = run("");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("view 3 does not fit: no overlap"));
    const std::vector<varitype> records = recordsOf(out);
    ASSERT_EQ(records.size(), 4U);
    EXPECT_EQ(poseOf(records[1], "test")->translation, Vector3d::Zero());
    expectNear(*poseOf(records[2], "test"), turned(45), 0.05, 0.05);
    EXPECT_GT(records[2]["overlap"].as<float>(), 0.3F);
    EXPECT_EQ(eventType(records[3]), event::kFlush);
}

}  // namespace
}  // namespace scansteps::scan
