// Writes PLY text.
#include "mesh/ply_writer.h"

#include <cmath>
#include <string>

#include "mesh/number_format.h"
#include "scansteps/error.h"

namespace scansteps::mesh {

namespace {

char* putNumber(char* out, std::uint32_t number)
{
    out = text::putUnsigned(out, number);
    *out++ = ' ';
    return out;
}

char* putColour(char* out, const float* rgb)
{
    for (int i = 0; i < 3; ++i) out = putNumber(out, static_cast<std::uint8_t>(static_cast<int>(rgb[i])));
    return out;
}

char* putPosition(char* out, const float* xyz)
{
    for (int i = 0; i < 3; ++i) {
        const double value = static_cast<double>(xyz[i]);
        const double scaled = value * 10000.0;  // in float, the product could round away from zero
        if (!(std::fabs(scaled) < 2147483648.0))
            failf("coordinate %g is too large for PLY, the limit is 214748", value);
        out = text::putTenThousandths(out, static_cast<std::int32_t>(scaled));
        *out++ = ' ';
    }
    return out;
}

constexpr std::size_t kLine = 8 * text::kNumberRoom;

void writeHeader(AtomicFile& file, std::size_t vertices, const std::string& rest)
{
    file.write("ply\nformat ascii 1.0\ncomment scansteps " SCANSTEPS_VERSION "\nelement vertex " +
               std::to_string(vertices) + "\nproperty float x\nproperty float y\nproperty float z\n" + rest +
               "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n");
}

}  // namespace

void writePly(AtomicFile& file, const Mesh& mesh)
{
    checkGeometry(mesh);
    checkColours(mesh.colours, mesh.triangleCount(), "Tricolors", "triangles");
    writeHeader(
        file, mesh.vertexCount(),
        "element face " + std::to_string(mesh.triangleCount()) + "\nproperty list uchar int vertex_index\n");
    for (std::size_t i = 0; i < mesh.vertexCount(); ++i) {
        char* out = putPosition(file.room(kLine), &mesh.vertices[3 * i]);
        *out++ = '\n';
        file.advance(out);
    }
    for (std::size_t k = 0; k < mesh.triangleCount(); ++k) {
        char* out = file.room(kLine);
        *out++ = '3';
        *out++ = ' ';
        for (std::size_t corner = 0; corner < 3; ++corner) out = putNumber(out, mesh.indices[3 * k + corner]);
        out = putColour(out, &mesh.colours[3 * k]);
        *out++ = '\n';
        file.advance(out);
    }
}

void writePly(AtomicFile& file, const Cloud& cloud)
{
    checkCloud(cloud);
    writeHeader(file, cloud.pointCount(), "");
    for (std::size_t i = 0; i < cloud.pointCount(); ++i) {
        char* out = putPosition(file.room(kLine), &cloud.points[3 * i]);
        out = putColour(out, &cloud.colours[3 * i]);
        *out++ = '\n';
        file.advance(out);
    }
}

}  // namespace scansteps::mesh
