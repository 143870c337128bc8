// The models of a record as the writers take them. Nothing is copied: the views live as long as the record
// and the handles that it names.
#pragma once

#include <vector>

#include "mesh/mesh.h"
#include "scansteps/record.h"

namespace scansteps::mesh {

/// The mesh in the entry "tria". "Vertices" and "Indices" must be there, and "Tricolors" where `needColours`;
/// "Pixels" and "Views" may be. Throws as floatTuples() and its like do.
Mesh meshOf(const varitype& params, bool needColours);

/// The cloud in the entry "pns": "Points" and "Colors".
Cloud cloudOf(const varitype& params);

/// The entry "images", if there is one: a struct array, each element with "data", an unsigned-char array of
/// 3 * W x H elements, or with "handle", the number of such an array. Throws a text naming the element when
/// it has neither or another shape.
std::vector<PictureView> picturesOf(const varitype& params);

}  // namespace scansteps::mesh
