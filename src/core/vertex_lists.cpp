// Checks shape and element kind of arrays that hold lists of tuples.
#include "scansteps/vertex_lists.h"

#include <string>

#include "scansteps/error.h"

namespace scansteps {

namespace {

const Array& arrayOf(const varitype& record, const char* name)
{
    const varitype entry = record[name];  // the record keeps the array alive
    return entry.as<Array>();
}

[[noreturn]] void failShape(const Array& array, const char* name, const char* wanted)
{
    failf("\"%.200s\" is an array of %u x %u x %u %s elements, not of %s", name, array.dim(0), array.dim(1),
          array.dim(2), kindName(array.kind()), wanted);
}

/// Null for an empty list.
const Array* tuplesOf(const varitype& record, const char* name, std::uint32_t width)
{
    const Array& array = arrayOf(record, name);
    if (array.kind() == Kind::Empty) return nullptr;
    const bool shaped = array.dim(2) == 1 && (array.dim(0) == width || array.dim(1) == width ||
                                              (array.dim(1) == 1 && array.dim(0) % width == 0));
    if (array.size() == 0) return nullptr;
    if (!shaped) failShape(array, name, width == 2 ? "pairs" : "triples");
    return &array;
}

}  // namespace

std::span<const float> floatList(const varitype& record, const char* name, std::uint32_t width)
{
    const Array* array = tuplesOf(record, name, width);
    if (array == nullptr) return {};
    if (array->kind() != Kind::Float) failShape(*array, name, "kind float");
    return array->elements<float>();
}

std::span<const std::uint32_t> indexList(const varitype& record, const char* name, std::uint32_t width)
{
    const Array* array = tuplesOf(record, name, width);
    if (array == nullptr) return {};
    if (array->kind() == Kind::Uint) return array->elements<std::uint32_t>();
    if (array->kind() != Kind::Int) failShape(*array, name, "kind int or unsigned int");
    // Accessing an int as unsigned int is allowed.
    return {reinterpret_cast<const std::uint32_t*>(array->data()), array->size()};
}

std::span<const std::int32_t> intList(const varitype& record, const char* name)
{
    const Array& array = arrayOf(record, name);
    if (array.kind() == Kind::Empty || array.size() == 0) return {};
    if (array.kind() != Kind::Int) failShape(array, name, "kind int");
    if (array.dim(2) != 1 || (array.dim(0) != 1 && array.dim(1) != 1)) failShape(array, name, "a list");
    return array.elements<std::int32_t>();
}

}  // namespace scansteps
