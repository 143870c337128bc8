// Values and structs. Payloads are stored in the value's holder, except for array bytes, which copies of a
// record share until one of them is written.
#include "scansteps/record.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "scansteps/error.h"

namespace scansteps {

namespace detail {

void failType()
{
    fail("varitype::getv() type error!");
}

// Array bytes that several holders may share. Once a writable reference has been given out, the bytes are
// `exclusive` to their holder: copying the record copies them.
struct SharedArray
{
    std::shared_ptr<Array> bytes = std::make_shared<Array>();
    bool exclusive = false;

    Array& writable()
    {
        if (bytes.use_count() > 1) bytes = std::make_shared<Array>(*bytes);
        exclusive = true;
        return *bytes;
    }
    SharedArray copy() const
    {
        return exclusive ? SharedArray{std::make_shared<Array>(*bytes), false} : *this;
    }
};

struct Holder
{
    Holder() {}
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { destroyPayload(); }

    void destroyPayload()
    {
        switch (kind) {
            case Kind::String:
                text.~basic_string();
                break;
            case Kind::Struct:
                structure.~unique_ptr();
                break;
            case Kind::Array:
                array.~SharedArray();
                break;
            case Kind::StructArray:
                structs.~vector();
                break;
            default:
                break;
        }
        kind = Kind::Empty;
    }

    void makePayload(Kind newKind)
    {
        destroyPayload();
        switch (newKind) {
            case Kind::String:
                new (&text) std::string;
                break;
            case Kind::Struct:
                new (&structure) std::unique_ptr<Struct>;
                break;
            case Kind::Array:
                new (&array) SharedArray;
                break;
            case Kind::StructArray:
                new (&structs) StructArray;
                break;
            default:
                std::memset(scalar, 0, sizeof scalar);
                break;
        }
        kind = newKind;
    }

    std::uint32_t references = 1;
    Kind kind = Kind::Empty;
    union {
        alignas(8) std::byte scalar[8];
        std::string text;
        std::unique_ptr<Struct> structure;
        SharedArray array;
        StructArray structs;
    };
};

}  // namespace detail

using detail::Holder;

varitype::varitype() : holder_(new Holder)
{
    std::memset(holder_->scalar, 0, sizeof holder_->scalar);
}

varitype::varitype(const char* value) : varitype(std::string(value)) {}

varitype::varitype(std::string value) : varitype()
{
    holder_->makePayload(Kind::String);
    holder_->text = std::move(value);
}

varitype::varitype(Struct value) : varitype()
{
    holder_->makePayload(Kind::Struct);
    holder_->structure = std::make_unique<Struct>(std::move(value));
}

varitype::varitype(Array value) : varitype()
{
    holder_->makePayload(Kind::Array);
    *holder_->array.bytes = std::move(value);
}

varitype::varitype(StructArray value) : varitype()
{
    holder_->makePayload(Kind::StructArray);
    holder_->structs = std::move(value);
}

varitype::varitype(const varitype& other) noexcept : holder_(other.holder_)
{
    if (holder_ != nullptr) ++holder_->references;
}

varitype::varitype(varitype&& other) noexcept : holder_(std::exchange(other.holder_, nullptr)) {}

varitype& varitype::operator=(const varitype& other) & noexcept
{
    varitype copy(other);
    std::swap(holder_, copy.holder_);
    return *this;
}

varitype& varitype::operator=(varitype&& other) & noexcept
{
    std::swap(holder_, other.holder_);
    return *this;
}

varitype::~varitype()
{
    if (holder_ != nullptr && --holder_->references == 0) delete holder_;
}

// A moved-from value reads as kind empty.
Kind varitype::kind() const
{
    return holder_ == nullptr ? Kind::Empty : holder_->kind;
}

Holder& varitype::holder() const
{
    if (holder_ == nullptr) detail::failType();
    return *holder_;
}

void varitype::setScalar(Kind kind, const void* value)
{
    holder_->kind = kind;
    std::memcpy(holder_->scalar, value, elementSize(kind));
}

void* varitype::scalar(Kind kind) const
{
    if (this->kind() != kind) detail::failType();
    return holder_->scalar;
}

std::string& varitype::text() const
{
    if (kind() != Kind::String) detail::failType();
    return holder_->text;
}

Struct& varitype::structure(bool toWrite) const
{
    if (kind() != Kind::Struct) detail::failType();
    if (holder_->structure == nullptr) {
        if (!toWrite) fail("MustBe nsa ");
        holder_->structure = std::make_unique<Struct>();
    }
    return *holder_->structure;
}

Array& varitype::array(bool toWrite) const
{
    if (kind() != Kind::Array) detail::failType();
    return toWrite ? holder_->array.writable() : *holder_->array.bytes;
}

StructArray& varitype::structArray() const
{
    if (kind() != Kind::StructArray) detail::failType();
    return holder_->structs;
}

namespace {

const Struct& namedValues(const varitype& value)
{
    if (value.kind() != Kind::Struct || !value.hasPayload()) fail("MustBe nsa ");
    return value.as<Struct>();
}

[[noreturn]] void failNamed(const char* what, std::string_view name)
{
    failf("[%.*s] %s", int(std::min<std::size_t>(name.size(), 500)), name.data(), what);
}

}  // namespace

varitype varitype::operator[](std::string_view name) const
{
    return namedValues(*this)[name];
}

bool varitype::has(std::string_view name) const
{
    return namedValues(*this).has(name);
}

void varitype::insert(std::string_view name, varitype value)
{
    if (kind() != Kind::Struct) fail("MustBe nsa ");
    structure(true).insert(name, std::move(value));
}

void varitype::set(std::string_view name, varitype value)
{
    if (kind() != Kind::Struct) fail("MustBe nsa ");
    structure(true).set(name, std::move(value));
}

void varitype::remove(std::string_view name)
{
    namedValues(*this);
    holder_->structure->remove(name);
}

void varitype::setKind(Kind kind)
{
    if (std::uint32_t(kind) >= kKindCount) detail::failType();
    holder().makePayload(kind);
}

bool varitype::hasPayload() const
{
    return kind() != Kind::Struct || holder_->structure != nullptr;
}

varitype varitype::clone() const
{
    varitype result;
    if (holder_ == nullptr) return result;
    Holder& to = *result.holder_;
    switch (holder_->kind) {
        case Kind::String:
            return holder_->text;
        case Kind::Struct:
            to.makePayload(Kind::Struct);
            if (holder_->structure) to.structure = std::make_unique<Struct>(*holder_->structure);
            return result;
        case Kind::Array:
            to.makePayload(Kind::Array);
            to.array = holder_->array.copy();
            return result;
        case Kind::StructArray:
            to.makePayload(Kind::StructArray);
            to.structs.reserve(holder_->structs.size());
            for (const varitype& element : holder_->structs) to.structs.push_back(element.clone());
            return result;
        default:
            to.kind = holder_->kind;
            std::memcpy(to.scalar, holder_->scalar, sizeof to.scalar);
            return result;
    }
}

bool varitype::equals(const varitype& other) const
{
    if (kind() != other.kind() || hasPayload() != other.hasPayload()) return false;
    if (!hasPayload() || holder_ == nullptr) return true;
    switch (kind()) {
        case Kind::String:
            return as<std::string>() == other.as<std::string>();
        case Kind::Struct: {
            const Struct &a = as<Struct>(), &b = other.as<Struct>();
            return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
                return x.name == y.name && x.value.equals(y.value);
            });
        }
        case Kind::Array: {
            const Array &a = as<Array>(), &b = other.as<Array>();
            return a.sameShape(b) && std::ranges::equal(a.bytes(), b.bytes());
        }
        case Kind::StructArray: {
            const StructArray &a = as<StructArray>(), &b = other.as<StructArray>();
            return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                              [](const varitype& x, const varitype& y) { return x.equals(y); });
        }
        default:
            return std::memcmp(holder_->scalar, other.holder_->scalar, elementSize(kind())) == 0;
    }
}

Struct::Struct(std::initializer_list<Entry> entries)
{
    reserve(entries.size());
    for (const Entry& entry : entries) insert(entry.name, entry.value);
}

Struct::Struct(const Struct& other)
{
    entries_.reserve(other.entries_.size());
    for (const Entry& entry : other.entries_) entries_.push_back({entry.name, entry.value.clone()});
}

Struct& Struct::operator=(const Struct& other)
{
    if (this != &other) *this = Struct(other);
    return *this;
}

std::vector<Struct::Entry>::iterator Struct::lowerBound(std::string_view name)
{
    // Records are mostly built in ascending order: check the end first.
    if (entries_.empty() || entries_.back().name < name) return entries_.end();
    return std::lower_bound(entries_.begin(), entries_.end(), name,
                            [](const Entry& entry, std::string_view key) { return entry.name < key; });
}

const varitype* Struct::find(std::string_view name) const
{
    const auto at = const_cast<Struct*>(this)->lowerBound(name);
    return at != entries_.end() && at->name == name ? &at->value : nullptr;
}

varitype Struct::operator[](std::string_view name) const
{
    const varitype* value = find(name);
    if (value == nullptr) failNamed("not found", name);
    return *value;
}

void Struct::insert(std::string_view name, varitype value)
{
    const auto at = lowerBound(name);
    if (at != entries_.end() && at->name == name) failNamed("already found", name);
    entries_.insert(at, {std::string(name), std::move(value)});
}

void Struct::set(std::string_view name, varitype value)
{
    const auto at = lowerBound(name);
    if (at != entries_.end() && at->name == name)
        at->value = std::move(value);
    else
        entries_.insert(at, {std::string(name), std::move(value)});
}

bool Struct::remove(std::string_view name)
{
    const auto at = lowerBound(name);
    if (at == entries_.end() || at->name != name) return false;
    entries_.erase(at);
    return true;
}

varitype copyRecord(const varitype& record)
{
    if (record.kind() != Kind::Struct) fail("MustBe nsa ");
    return record.clone();
}

}  // namespace scansteps
