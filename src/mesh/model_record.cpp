// Extraction of meshes, clouds and pictures from records.
#include "mesh/model_record.h"

#include "scansteps/error.h"
#include "scansteps/texture.h"
#include "scansteps/vertex_lists.h"

namespace scansteps::mesh {

namespace {

PictureView pictureOf(const Array& array, std::size_t number)
{
    const bool shaped = array.kind() == Kind::Uchar && array.dim(0) % 3 == 0 && array.dim(0) > 0 &&
                        array.dim(1) > 0 && array.dim(2) == 1 && array.dim(0) < 0x7FFFFFFF &&
                        array.dim(1) < 0x7FFFFFFF;
    if (!shaped)
        failf(
            "\"images\": element %zu is an array of %u x %u x %u %s elements, not of 3 * width x height "
            "bytes",
            number, array.dim(0), array.dim(1), array.dim(2), kindName(array.kind()));
    return {array.elements<std::uint8_t>(), static_cast<int>(array.dim(0) / 3),
            static_cast<int>(array.dim(1))};
}

// 1 x N x 1: one for each vertex; N x 1 x 1: one for each triangle.
void addViews(const varitype& tria, Mesh& mesh)
{
    mesh.views = intList(tria, "Views");
    const varitype entry = tria["Views"];
    const Array& array = entry.as<Array>();
    mesh.viewsOfTriangles = mesh.views.size() == 1 ? mesh.triangleCount() == 1 : array.dim(1) == 1;
}

}  // namespace

Mesh meshOf(const varitype& params, bool needColours)
{
    const varitype tria = params["tria"];
    Mesh mesh;
    mesh.vertices = floatList(tria, "Vertices", 3);
    mesh.indices = indexList(tria, "Indices", 3);
    if (needColours || tria.has("Tricolors")) mesh.colours = floatList(tria, "Tricolors", 3);
    if (tria.has("Pixels")) mesh.pixels = floatList(tria, "Pixels", 2);
    if (tria.has("Views")) addViews(tria, mesh);
    return mesh;
}

Cloud cloudOf(const varitype& params)
{
    const varitype pns = params["pns"];
    return {floatList(pns, "Points", 3), floatList(pns, "Colors", 3)};
}

std::vector<PictureView> picturesOf(const varitype& params)
{
    std::vector<PictureView> pictures;
    if (!params.has("images")) return pictures;
    const varitype images = params["images"];
    for (const varitype& image : images.as<StructArray>()) {
        const std::size_t number = pictures.size();
        if (image.has("data")) {
            const varitype data = image["data"];
            pictures.push_back(pictureOf(data.as<Array>(), number));
        } else if (image.has("handle")) {
            pictures.push_back(pictureOf(pixelsOf(image["handle"].as<std::int32_t>()), number));
        } else {
            failf("\"images\": element %zu has neither \"data\" nor \"handle\"", number);
        }
    }
    return pictures;
}

}  // namespace scansteps::mesh
