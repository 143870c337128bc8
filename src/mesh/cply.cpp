// Step cply: writes the mesh ("tria") or the point cloud ("pns") of every event to a file, and passes the
// event on.
#include <string>

#include "core/print.h"
#include "mesh/flt_writer.h"
#include "mesh/model_format.h"
#include "mesh/model_record.h"
#include "mesh/obj_writer.h"
#include "mesh/ply_writer.h"
#include "mesh/stl_writer.h"
#include "mesh/vertex_normals.h"
#include "scansteps/chain.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::mesh {

class CpuPly final : public CPUBase
{
  public:
    const char* getName() override { return "CpuPly"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    /// Notifies the host if no model has arrived since the last flush.
    void flush(varitype& params) override;

  private:
    void writeMesh(const varitype& params) const;
    void writeCloud(const varitype& params);

    std::string name_ = "out.ply";
    ModelFormat format_ = ModelFormat::Ply;
    TextureSettings texture_;
    bool hasMetModel_ = false;
};

SCANSTEPS_FACTORY(cply, CpuPly)

namespace {

template <class Model>
void savePly(const std::string& name, const Model& model)
{
    AtomicFile file(name);
    if (!isModelOpen(file)) return;
    writePly(file, model);
    file.commit();
}

// JPEG files have at most 65,500 pixels per side.
void checkTexture(const TextureSettings& settings)
{
    if (settings.width < 1 || settings.width > 65500)
        failf("CpuPly: export_obj.image_width = %d, must be 1 to 65500", settings.width);
    if (!(settings.scale >= 0.001F && settings.scale <= 16))
        failf("CpuPly: export_obj.scale = %g, must be 0.001 to 16", double{settings.scale});
}

void saveStl(const std::string& name, const Mesh& mesh)
{
    AtomicFile file(name);
    if (!isModelOpen(file)) return;
    print::field(std::int64_t{kStlEntrySize}, " sizeof(STLEntry)\n");
    const IndexRange met = writeStl(file, mesh);
    file.commit();
    print::field(std::int64_t{met.largest}, " imax\n");
    print::field(std::int64_t{met.smallest}, " imin\n");
}

}  // namespace

void CpuPly::init(varitype& params)
{
    const Settings settings(*this, params);
    name_ = settings.text("export.name");
    if (name_.empty()) name_ = "out.ply";
    format_ = modelFormat(name_);
    texture_.width = settings.integer("export_obj.image_width");
    texture_.scale = settings.real("export_obj.scale");
    forward(*this, params);
}

void CpuPly::process(varitype& params)
{
    StepTimer timer(*this);
    if (params.has("tria"))
        writeMesh(params);
    else if (params.has("pns"))
        writeCloud(params);
    hasMetModel_ |= params.has("tria") || params.has("pns");
    varitype record = copyRecord(params);
    timer.forward(record);
}

void CpuPly::flush(varitype& params)
{
    if (!hasMetModel_) notifyHost(Trouble::NoModel, getName(), name_.c_str(), "");
    hasMetModel_ = false;
    CPUBase::flush(params);
}

void CpuPly::writeCloud(const varitype& params)
{
    if (format_ == ModelFormat::Ply)
        savePly(name_, cloudOf(params));
    else
        notifyHost(Trouble::ModelNotWritten, getName(), name_.c_str(),
                   "point clouds are written as PLY only");
}

void CpuPly::writeMesh(const varitype& params) const
{
    switch (format_) {
        case ModelFormat::None:
            break;
        case ModelFormat::Ply:
            savePly(name_, meshOf(params, true));
            break;
        case ModelFormat::Stl:
            saveStl(name_, meshOf(params, true));
            break;
        case ModelFormat::Obj:
        case ModelFormat::Flt: {
            checkTexture(texture_);
            const std::vector<PictureView> pictures = picturesOf(params);
            const TexturedModel model{meshOf(params, false), pictures, texture_};
            if (format_ == ModelFormat::Obj)
                saveObj(name_, model);
            else
                saveFlt(name_, model);
            break;
        }
    }
}

}  // namespace scansteps::mesh
