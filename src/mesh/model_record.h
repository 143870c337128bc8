// Views of the models in a record, in the form that the writers take. Nothing is copied: the views are valid
// as long as the record and the arrays of its handles.
#pragma once

#include <vector>

#include "mesh/mesh.h"
#include "scansteps/record.h"

namespace scansteps::mesh {

/// The mesh in the entry "tria": "Vertices", "Indices" and, if `needColours`, "Tricolors" are required,
/// "Pixels" and "Views" optional. Throws a text naming the entry when one is missing or malformed.
Mesh meshOf(const varitype& params, bool needColours);

/// The cloud in the entry "pns": "Points" and "Colors".
Cloud cloudOf(const varitype& params);

/// The entry "images", if present: a struct array whose elements have "data", an unsigned-char array of
/// 3 * W x H elements, or "handle", the number of such an array. Throws a text naming the element when it has
/// neither, or an array of another shape.
std::vector<PictureView> picturesOf(const varitype& params);

}  // namespace scansteps::mesh
