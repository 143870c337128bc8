// Parameter records: `varitype`, a reference to a shared, kind-tagged value, and `Struct`, the ordered set of
// named values that every event is. The byte form of records is in stream.h.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "scansteps/array.h"

namespace scansteps {

class Struct;
class varitype;
using StructArray = std::vector<varitype>;

namespace detail {
template <class T>
inline constexpr bool isScalar = kindOf<T>() != Kind::Empty;
[[noreturn]] void failType();
struct Holder;
}  // namespace detail

/// A reference to a shared value. Copying a varitype copies the reference; assigning a Struct to a Struct
/// makes new values for its entries all the way down. Not thread-safe: only the thread that drives the chain
/// touches records (the bytes of arrays may be shared between records and are copied when written).
class varitype
{
  public:
    /// A value of kind empty.
    varitype();
    varitype(std::int8_t value) : varitype(fromScalar(value)) {}
    varitype(std::uint8_t value) : varitype(fromScalar(value)) {}
    varitype(std::int16_t value) : varitype(fromScalar(value)) {}
    varitype(std::uint16_t value) : varitype(fromScalar(value)) {}
    varitype(std::int32_t value) : varitype(fromScalar(value)) {}
    varitype(std::uint32_t value) : varitype(fromScalar(value)) {}
    varitype(Half value) : varitype(fromScalar(value)) {}
    varitype(float value) : varitype(fromScalar(value)) {}
    varitype(double value) : varitype(fromScalar(value)) {}
    varitype(const char* value);
    varitype(std::string value);
    varitype(Struct value);
    varitype(Array value);
    varitype(StructArray value);
    varitype(const varitype& other) noexcept;
    varitype(varitype&& other) noexcept;
    varitype& operator=(const varitype& other) & noexcept;
    varitype& operator=(varitype&& other) & noexcept;
    // A look-up returns a reference by value: assigning to it would be lost. Use getv() or Struct::set().
    varitype& operator=(const varitype&) && = delete;
    varitype& operator=(varitype&&) && = delete;
    ~varitype();

    Kind kind() const;

    /// The named entry. Throws "MustBe nsa " when this is no struct or has no payload, "[%s] not found".
    varitype operator[](std::string_view name) const;
    /// True when the struct holds the entry. Throws "MustBe nsa " as the look-up does.
    bool has(std::string_view name) const;
    /// Adds an entry; throws "[%s] already found". A struct without payload receives one.
    void insert(std::string_view name, varitype value);
    /// Adds the entry or replaces it.
    void set(std::string_view name, varitype value);
    /// Removes the entry if it is there.
    void remove(std::string_view name);

    /// The payload, to read or to change in place. Throws "varitype::getv() type error!" when the kind is
    /// another one. A struct without payload receives one, so that setKind() and an assignment make a record.
    template <class T>
    T& getv() &;
    template <class T>
    T& getv() &&
    {
        return static_cast<varitype&>(*this).getv<T>();
    }
    template <class T>
    const T& getv() const&
    {
        return as<T>();
    }
    /// The payload, to read only: unlike getv() it never has to separate shared array bytes, and a struct
    /// without payload is "MustBe nsa ".
    template <class T>
    const T& as() const;

    /// Turns the value into an empty one of that kind: zero, "", a struct without payload, a default array.
    void setKind(Kind kind);
    /// False only for a struct that setKind() made and nothing was put into.
    bool hasPayload() const;
    /// A new value equal to this one, all the way down.
    varitype clone() const;
    /// Structs equal in keys and values, arrays in shape and bytes, floats in bits.
    bool equals(const varitype& other) const;

  private:
    template <class T>
    static varitype fromScalar(T value)
    {
        varitype result;
        result.setScalar(kindOf<T>(), &value);
        return result;
    }
    void setScalar(Kind kind, const void* value);
    void* scalar(Kind kind) const;  // checks the kind
    std::string& text() const;
    Struct& structure(bool toWrite) const;
    Array& array(bool toWrite) const;
    StructArray& structArray() const;
    detail::Holder& holder() const;

    detail::Holder* holder_;
};

/// Named values, ordered by name (bytes of the common prefix, then the shorter first). Copying a Struct
/// copies its values all the way down.
class Struct
{
  public:
    struct Entry
    {
        std::string name;
        varitype value;
    };

    Struct() = default;
    Struct(std::initializer_list<Entry> entries);
    Struct(const Struct& other);
    Struct(Struct&& other) noexcept = default;
    Struct& operator=(const Struct& other);
    Struct& operator=(Struct&& other) noexcept = default;
    ~Struct() = default;

    const varitype* find(std::string_view name) const;
    varitype operator[](std::string_view name) const;
    bool has(std::string_view name) const { return find(name) != nullptr; }
    void insert(std::string_view name, varitype value);
    void set(std::string_view name, varitype value);
    bool remove(std::string_view name);
    void reserve(std::size_t count) { entries_.reserve(count); }

    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }

  private:
    std::vector<Entry>::iterator lowerBound(std::string_view name);
    std::vector<Entry> entries_;
};

template <class T>
T& varitype::getv() &
{
    if constexpr (std::is_same_v<T, std::string>)
        return text();
    else if constexpr (std::is_same_v<T, Struct>)
        return structure(true);
    else if constexpr (std::is_same_v<T, Array>)
        return array(true);
    else if constexpr (std::is_same_v<T, StructArray>)
        return structArray();
    else {
        static_assert(detail::isScalar<T>, "no kind has this payload");
        return *static_cast<T*>(scalar(kindOf<T>()));
    }
}

template <class T>
const T& varitype::as() const
{
    if constexpr (std::is_same_v<T, std::string>)
        return text();
    else if constexpr (std::is_same_v<T, Struct>)
        return structure(false);
    else if constexpr (std::is_same_v<T, Array>)
        return array(false);
    else if constexpr (std::is_same_v<T, StructArray>)
        return structArray();
    else {
        static_assert(detail::isScalar<T>, "no kind has this payload");
        return *static_cast<const T*>(scalar(kindOf<T>()));
    }
}

/// A new record (kind struct) whose contents are assigned from `record`: nothing written into the copy shows
/// in the original. This is what a step forwards. A record without payload gives one without payload.
varitype copyRecord(const varitype& record);

/// Text of the record for people: one entry a line, structs as "[] {" ... "}", arrays with "size =". The
/// first line begins with `prefix`.
std::string dumpText(const varitype& value, std::string_view prefix);
/// Prints dumpText() to standard output.
void dump(const varitype& value, std::string_view prefix);

}  // namespace scansteps
