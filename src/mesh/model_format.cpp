// The table of model file extensions.
#include "mesh/model_format.h"

namespace scansteps::mesh {

ModelFormat modelFormat(std::string_view name)
{
    struct Extension
    {
        const char *lower, *upper;
        ModelFormat format;
    };
    constexpr Extension kExtensions[] = {{".ply", ".PLY", ModelFormat::Ply},
                                         {".flt", ".FLT", ModelFormat::Flt},
                                         {".obj", ".OBJ", ModelFormat::Obj},
                                         {".stl", ".STL", ModelFormat::Stl}};
    ModelFormat found = ModelFormat::None;
    for (const Extension& e : kExtensions)
        if (name.find(e.lower) != std::string_view::npos || name.find(e.upper) != std::string_view::npos)
            found = e.format;
    return found;
}

}  // namespace scansteps::mesh
