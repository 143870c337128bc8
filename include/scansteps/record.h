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

/// A reference to a shared value. Copying a varitype copies the reference; copying a Struct makes a deep copy
/// of its entries. Not thread-safe: only the thread that drives the chain may use records. (Records may share
/// the bytes of arrays, which are copied on write.)
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
    // operator[] returns a temporary reference, so assigning to it would have no effect: use getv() or set().
    varitype& operator=(const varitype&) && = delete;
    varitype& operator=(varitype&&) && = delete;
    ~varitype();

    Kind kind() const;

    /// The named entry. Throws "MustBe nsa " unless this is a struct with payload, and "[%s] not found".
    varitype operator[](std::string_view name) const;
    /// Whether the struct has the entry. Throws "MustBe nsa " as operator[] does.
    bool has(std::string_view name) const;
    /// Adds an entry; throws "[%s] already found" if it exists. A struct without payload is given one.
    void insert(std::string_view name, varitype value);
    /// Adds the entry or replaces it.
    void set(std::string_view name, varitype value);
    /// Removes the entry if it is there.
    void remove(std::string_view name);

    /// The payload, for reading or changing it in place. Throws "varitype::getv() type error!" when the value
    /// is of another kind. A struct without payload is given one, so assigning works after setKind().
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
    /// The payload for reading only: unlike getv(), it never copies shared array bytes, and it throws "MustBe
    /// nsa " for a struct without payload.
    template <class T>
    const T& as() const;

    /// Changes the kind and resets the value: to zero, "", a struct without payload or a default array.
    void setKind(Kind kind);
    /// False only for a struct made by setKind() to which nothing has been added.
    bool hasPayload() const;
    /// A deep copy.
    varitype clone() const;
    /// Deep comparison: structs by keys and values, arrays by shape and bytes, floats by their bits.
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

/// Named values in the lexicographic byte order of the names. Copying a Struct makes a deep copy.
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

/// A deep copy of the record, which is what a step forwards: changes to it do not affect the original. Throws
/// "MustBe nsa " when `record` is not a struct. The copy has a payload if `record` has one.
varitype copyRecord(const varitype& record);

/// Human-readable form of the record: one entry per line, structs as "[] {" ... "}", arrays with "size =".
/// The first line begins with `prefix`.
std::string dumpText(const varitype& value, std::string_view prefix);
/// Prints dumpText() to standard output.
void dump(const varitype& value, std::string_view prefix);

}  // namespace scansteps
