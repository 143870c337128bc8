// Step sfuse: fuses views into one mesh, at the flush.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/frame.h>
#include <scansteps/step_factory.h>

#include <cstdio>
#include <optional>
#include <utility>

#include "fusion.h"
#include "step_frame.h"
#include "view_record.h"

namespace scansteps::scan {

class Sfuse final : public CPUBase
{
  public:
    const char* getName() override { return "Sfuse"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    /// Sends the mesh on as a frame of its own before the flush; not after an error.
    void flush(varitype& params) override;

  private:
    Pose poseOfView(const varitype& record) const;
    void sendMesh(StepTimer& timer);

    std::optional<Fusion> fusion_;
    std::optional<Stage> stage_;
    StructArray images_;
    bool isVideo_ = false, hasAllPictures_ = true;
    bool isWhole_ = true;  // no view ended with an error
};

SCANSTEPS_FACTORY(sfuse, Sfuse)

void Sfuse::init(varitype& params)
{
    const Settings settings(*this, params);
    FusionSettings s;
    s.voxel = double(settings.real("sfuse.voxel"));
    s.truncation = double(settings.real("sfuse.truncation"));
    s.range.contour = settings.real("sfuse.contour");
    s.repair.fragment = double(settings.real("sfuse.fragment"));
    s.repair.close = double(settings.real("sfuse.close"));
    s.memory = std::size_t(settings.integer("sfuse.memory")) << 20;
    fusion_.emplace(s);
    stage_.reset();
    if (const std::string file = settings.text("sfuse.calibration"); !file.empty()) {
        stage_ = readCalibration(file).stage;
        if (!stage_) failf("sfuse: /stage is missing in %s", file.c_str());
    }
    images_.clear();
    isVideo_ = settings.has("VideoFormat");
    hasAllPictures_ = isWhole_ = true;
    forward(*this, params);
}

Pose Sfuse::poseOfView(const varitype& record) const
{
    const auto number = int(fusion_->views());
    if (const auto pose = poseOf(record, "sfuse")) return *pose;
    if (stage_) return stageMotion(*stage_, number);
    if (number > 0)
        failf("sfuse: view %d has no \"pose\"; sicp finds it, or sfuse.calibration names a stage",
              number + 1);
    return {};
}

void Sfuse::process(varitype& params)
{
    StepTimer timer(*this);
    if (!fusion_) fail("sfuse: a view arrived before the settings");
    isWhole_ = false;
    const RecordMesh view(params, "sfuse");
    const Pose pose = poseOfView(params);
    Array picture = pictureOf(params, isVideo_, "sfuse");
    fusion_->reserve(picture.byteSize());
    const std::int64_t turnedAway = fusion_->add(view.mesh, pose);
    if (turnedAway > 0)
        std::printf("%15lld triangles of view %zu show their back\n", static_cast<long long>(turnedAway),
                    fusion_->views());
    hasAllPictures_ &= picture.kind() == Kind::Uchar;
    images_.push_back(Struct{{"data", std::move(picture)}, {"pose", poseArray(pose)}});
    isWhole_ = true;
    timer.stop();
}

void Sfuse::sendMesh(StepTimer& timer)
{
    const std::size_t views = fusion_->views();
    const FusedMesh mesh = fusion_->finish();
    const std::size_t vertices = mesh.surface.vertices.size() / 3,
                      triangles = mesh.surface.indices.size() / 3;
    const Repair& r = mesh.repair;
    Array filled(Kind::Int, std::uint32_t(triangles), 1);
    std::fill(filled.elements<std::int32_t>().begin() + std::ptrdiff_t(r.measuredTriangles),
              filled.elements<std::int32_t>().end(), 1);
    varitype record(
        Struct{{"eventType", event::kProcess},
               {"tria", Struct{{"Vertices", arrayOf<float>(mesh.surface.vertices, 3, vertices)},
                               {"Normals", arrayOf<float>(mesh.normals, 3, vertices)},
                               {"Indices", arrayOf<std::uint32_t>(mesh.surface.indices, 3, triangles)},
                               {"Tricolors", arrayOf<float>(mesh.colours, 3, triangles)},
                               {"Filled", std::move(filled)}}},
               {"holes", Struct{{"open", int(r.open)},
                                {"closed", int(r.closed)},
                                {"largest", float(r.largestOpen)},
                                {"fragments", int(r.fragments)}}}});
    if (hasAllPictures_) record.set("images", std::exchange(images_, {}));
    std::printf(
        "%15zu views\n%15zu blocks of voxels\n%15zu vertices\n%15zu triangles\n%15zu of them in %lld filled "
        "holes\n%15lld holes remain, the largest of %.1f mm\n%15lld fragments left out\n",
        views, mesh.blocks, vertices, triangles, triangles - r.measuredTriangles,
        static_cast<long long>(r.closed), static_cast<long long>(r.open), r.largestOpen,
        static_cast<long long>(r.fragments));
    timer.forward(record);
}

void Sfuse::flush(varitype& params)
{
    if (fusion_ && isWhole_ && fusion_->views() > 0) {
        StepTimer timer(*this);
        sendMesh(timer);
    }
    images_.clear();
    CPUBase::flush(params);
}

}  // namespace scansteps::scan
