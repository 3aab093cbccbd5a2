#pragma once

#include "peximage/platform/foundation/DocumentCodec.h"
#include "peximage/platform/foundation/Reason.h"

#include <memory>
#include <new>
#include <tuple>

/// Keyed documents: JSON texts that values are written to and read back from.
///
/// A type takes part by listing its keys once, in the order in which they are written:
///
///     struct Mark {
///         std::string name = "Mark";
///         double width = 1;
///         std::optional<std::string> note;
///
///         static constexpr auto documentKeys() {
///             return std::tuple(keyed::required("name", &Mark::name), keyed::lenient("width", &Mark::width),
///                               keyed::optional("note", &Mark::note));
///         }
///     };
///
///     std::string text = encode(mark);
///     std::optional<Mark> again = decode<Mark>(text);
///
/// Members may be flags, numbers, texts, enumerations with a table, points, addresses and moments as optional
/// members, types with keys of their own, and lists and optionals of these. Keys that a type does not list
/// are ignored when reading.
namespace pex {

namespace keyed {

/// One key of a type: its name, the member behind it, and what reading makes of a key that is not there or
/// whose value is of another kind.
template <class Owner, class Member, class Fallback>
struct Key {
    /// The key's name in the document.
    std::string_view name;
    /// The member behind it.
    Member Owner::*member;
    /// What reading makes of a key that is missing or of another kind: see the functions below.
    enum class Reading { required, optional, lenient };
    /// How strictly this key is read.
    Reading reading;
    Fallback fallback; ///< Of a lenient key: makes the value to take; null leaves the member's own default.
};

/// The key must be there and be of the right kind. Always written.
template <class Owner, class Member>
constexpr auto required(std::string_view name, Member Owner::*member) {
    using Made = Key<Owner, Member, std::nullptr_t>;
    return Made{name, member, Made::Reading::required, nullptr};
}

/// Written only when the member holds a value. A missing key or a null reads as absent; a value of another
/// kind fails the object.
template <class Owner, class Value>
constexpr auto optional(std::string_view name, std::optional<Value> Owner::*member) {
    using Made = Key<Owner, std::optional<Value>, std::nullptr_t>;
    return Made{name, member, Made::Reading::optional, nullptr};
}

/// Never fails the object: a key that is missing, null or of another kind leaves the member as a new object
/// has it. Written always, or when the member is an optional, only when it holds a value.
template <class Owner, class Member>
constexpr auto lenient(std::string_view name, Member Owner::*member) {
    using Made = Key<Owner, Member, std::nullptr_t>;
    return Made{name, member, Made::Reading::lenient, nullptr};
}

/// The same with a value of its own for such a key, made by `fallback()` each time.
template <class Owner, class Member, class Fallback>
constexpr auto lenient(std::string_view name, Member Owner::*member, Fallback fallback) {
    using Made = Key<Owner, Member, Fallback>;
    return Made{name, member, Made::Reading::lenient, fallback};
}

namespace detail {

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <class Key, class Owner>
void write(DocumentWriter& writer, const Key& key, const Owner& owner) {
    using Member = std::remove_cvref_t<decltype(owner.*key.member)>;
    if constexpr (isOptional<Member>)
        if (!(owner.*key.member).has_value()) return;
    writer.key(key.name);
    DocumentCodec<Member>::write(writer, owner.*key.member);
}

template <class Key, class Owner>
bool read(DocumentValue value, const Key& key, Owner& owner, DocumentError* error) {
    using Member = std::remove_cvref_t<decltype(owner.*key.member)>;
    using Reading = typename Key::Reading;
    const bool missing = !value.exists() || value.isNull();
    if (key.reading == Reading::optional && missing) return true;
    if (key.reading != Reading::lenient) {
        if (DocumentCodec<Member>::read(value, owner.*key.member, error)) return true;
        if (!value.exists()) failMissing(error);
        return failInside(error, key.name);
    }

    // Read aside: a value that breaks off half-way must not leave its first half behind.
    Member read = DocumentAccess::make<Member>();
    if (!missing && DocumentCodec<Member>::read(value, read, nullptr))
        owner.*key.member = std::move(read);
    else if constexpr (!std::is_null_pointer_v<decltype(key.fallback)>)
        owner.*key.member = key.fallback();
    return true;
}

} // namespace detail
} // namespace keyed

/// A type with keys is an object.
template <class T>
struct DocumentCodec {
    /// Writes the keys in the order of the list.
    static void write(DocumentWriter& writer, const T& value) {
        writer.beginObject();
        std::apply([&](const auto&... key) { (keyed::detail::write(writer, key, value), ...); },
                   DocumentAccess::keys<T>());
        writer.endObject();
    }

    /// Reads them; false when the value is no object, or a key of it fails.
    static bool read(DocumentValue value, T& target, DocumentError* error) {
        if (!value.isObject()) return failDocument(error, "expected an object");
        return std::apply(
            [&](const auto&... key) {
                const std::array<std::string_view, sizeof...(key)> names{key.name...};
                std::array<DocumentValue, sizeof...(key)> found{};
                value.locate(names, found);
                std::size_t i = 0;
                return (keyed::detail::read(found[i++], key, target, error) && ...);
            },
            DocumentAccess::keys<T>());
    }
};

/// A type that is shared by reference: read into an object of its own on the heap.
template <class T>
concept SharedDocument = requires(T& value) {
    value.weak_from_this();
};

/// What reading gives: the value or absent, of a reference type the object or null.
template <class T>
using Decoded = std::conditional_t<SharedDocument<T>, std::shared_ptr<T>, std::optional<T>>;

/// The document of a value, without spaces, its keys in declaration order.
template <class T>
std::string encode(const T& value) {
    DocumentWriter writer;
    DocumentCodec<T>::write(writer, value);
    return writer.take();
}

/// The value of a document; absent when the text is none (see `DocumentTree::parse` for its limits), or when
/// a required key is missing or of another kind. `error`, if not null, then tells where and why, as does
/// `lastReason`.
template <class T>
Decoded<T> decode(std::string_view text, DocumentError* error = nullptr) {
    DocumentError problem;
    try {
        Decoded<T> result;
        if constexpr (SharedDocument<T>)
            result = DocumentAccess::makeShared<T>();
        else
            result.emplace(DocumentAccess::make<T>());
        const std::optional<DocumentTree> tree = DocumentTree::parse(text, &problem);
        if (tree && DocumentCodec<T>::read(tree->root(), *result, &problem)) return result;
    } catch (const std::bad_alloc&) {
        failDocument(&problem, "too large for the memory");
    }
    giveReason(ReasonCode::damaged, problem.message());
    if (error) *error = std::move(problem);
    return {};
}

} // namespace pex
