// Step cply: writes the mesh ("tria") or the point cloud ("pns") of every event as a file, and passes the
// event on.
#pragma once

#include <string>

#include "mesh/texture_layout.h"
#include "scansteps/chain.h"

namespace scansteps::mesh {

class CpuPly final : public CPUBase
{
  public:
    const char* getName() override { return "CpuPly"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    /// Tells the host when no model has come since the last flush.
    void flush(varitype& params) override;

    enum class Format
    {
        None,
        Ply,
        Flt,
        Obj,
        Stl,
    };

    /// The format told by the last of ".ply", ".flt", ".obj", ".stl" (or all in capitals), in this order,
    /// that stands anywhere in the name.
    static Format formatOf(const std::string& name);

  private:
    void writeMesh(const varitype& params) const;
    void writeCloud(const varitype& params);

    std::string name_ = "out.ply";
    Format format_ = Format::Ply;
    TextureSettings texture_;
    bool hasMetModel_ = false;
};

}  // namespace scansteps::mesh
