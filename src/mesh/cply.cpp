#include "mesh/cply.h"

#include "core/print.h"
#include "core/step_factory.h"
#include "mesh/flt_writer.h"
#include "mesh/model_record.h"
#include "mesh/obj_writer.h"
#include "mesh/ply_writer.h"
#include "mesh/stl_writer.h"
#include "mesh/vertex_normals.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/settings.h"

namespace scansteps::mesh {

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

// What pages of texture can be made with: a JPEG file has at most 65,500 pixels on a side.
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

CpuPly::Format CpuPly::formatOf(const std::string& name)
{
    struct Extension
    {
        const char *lower, *upper;
        Format format;
    };
    constexpr Extension kExtensions[] = {{".ply", ".PLY", Format::Ply},
                                         {".flt", ".FLT", Format::Flt},
                                         {".obj", ".OBJ", Format::Obj},
                                         {".stl", ".STL", Format::Stl}};
    Format found = Format::None;
    for (const Extension& e : kExtensions)
        if (name.find(e.lower) != std::string::npos || name.find(e.upper) != std::string::npos)
            found = e.format;
    return found;
}

void CpuPly::init(varitype& params)
{
    const Settings settings(*this, params);
    name_ = settings.text("export.name");
    if (name_.empty()) name_ = "out.ply";
    format_ = formatOf(name_);
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
    timer.stop();
    forward(*this, record);
}

void CpuPly::flush(varitype& params)
{
    if (!hasMetModel_) notifyHost(Trouble::NoModel, getName(), name_.c_str(), "");
    hasMetModel_ = false;
    CPUBase::flush(params);
}

void CpuPly::writeCloud(const varitype& params)
{
    if (format_ == Format::Ply)
        savePly(name_, cloudOf(params));
    else
        notifyHost(Trouble::ModelNotWritten, getName(), name_.c_str(),
                   "point clouds are written as PLY only");
}

void CpuPly::writeMesh(const varitype& params) const
{
    switch (format_) {
        case Format::None:
            break;
        case Format::Ply:
            savePly(name_, meshOf(params, true));
            break;
        case Format::Stl:
            saveStl(name_, meshOf(params, true));
            break;
        case Format::Obj:
        case Format::Flt: {
            checkTexture(texture_);
            const std::vector<PictureView> pictures = picturesOf(params);
            const TexturedModel model{meshOf(params, false), pictures, texture_};
            if (format_ == Format::Obj)
                saveObj(name_, model);
            else
                saveFlt(name_, model);
            break;
        }
    }
}

}  // namespace scansteps::mesh
