// Step smesh: the mesh of points on a pixel grid.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/frame.h>
#include <scansteps/step_factory.h>
#include <scansteps/vertex_lists.h>

#include <cstdio>
#include <limits>

#include "grid_mesh.h"
#include "step_frame.h"

namespace scansteps::scan {

class Smesh final : public CPUBase
{
  public:
    const char* getName() override { return "Smesh"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    MeshLimits limits_;
};

SCANSTEPS_FACTORY(smesh, Smesh)

namespace {

GridPoints gridOf(const varitype& index, const varitype& pns)
{
    const Array& array = index.as<Array>();
    GridPoints grid{array.elements<std::int32_t>(), array.dim(0), array.dim(1), floatList(pns, "Points", 3),
                    floatList(pns, "Colors", 3)};
    if (array.kind() != Kind::Int || array.dim(2) != 1) fail("smesh: \"index\" is no plane of int elements");
    if (grid.colours.size() != grid.points.size())
        fail("smesh: \"Colors\" has another number of entries than \"Points\"");
    const auto count = grid.points.size() / 3;
    for (const std::int32_t n : grid.index)
        if (n >= 0 && std::size_t(n) >= count)
            failf("smesh: \"index\" names point %d, but there are %zu", n, count);
    return grid;
}

}  // namespace

void Smesh::init(varitype& params)
{
    const Settings settings(*this, params);
    limits_ = {settings.real("smesh.angle"), settings.real("smesh.edge")};
    forward(*this, params);
}

void Smesh::process(varitype& params)
{
    StepTimer timer(*this);
    varitype record = copyRecord(params);
    const varitype pns = record["pns"], index = record["index"];
    const GridMesh mesh = meshOfGrid(gridOf(index, pns), limits_);
    const std::size_t vertices = mesh.vertices.size() / 3, triangles = mesh.indices.size() / 3;
    record.set("tria", Struct{{"Vertices", arrayOf<float>(mesh.vertices, 3, vertices)},
                              {"Normals", arrayOf<float>(mesh.normals, 3, vertices)},
                              {"Pixels", arrayOf<float>(mesh.pixels, 2, vertices)},
                              {"Views", Array(Kind::Int, 1, std::uint32_t(vertices))},
                              {"Indices", arrayOf<std::uint32_t>(mesh.indices, 3, triangles)},
                              {"Tricolors", arrayOf<float>(mesh.colours, 3, triangles)}});
    std::printf("%15zu vertices\n%15zu triangles\n%15lld steep or long triangles left out\n", vertices,
                triangles, static_cast<long long>(mesh.steep));
    timer.forward(record);
}

}  // namespace scansteps::scan
