#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/DocumentTree.h"
#include "peximage/platform/foundation/DocumentWriter.h"
#include "peximage/platform/foundation/Enumeration.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGPoint.h"

#include <algorithm>
#include <chrono>
#include <concepts>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace pex {

/// Notes why reading stopped, if anyone wants to know; always false.
PEX_EXPORT bool failDocument(DocumentError* error, std::string problem);
/// Adds to what is noted that nothing stands there at all; always false.
PEX_EXPORT bool failMissing(DocumentError* error);
/// Puts a key or "[index]" before the path noted so far; always false.
PEX_EXPORT bool failInside(DocumentError* error, std::string_view step);

/// How values of one type stand in a document: `write(writer, value)` and `read(value, target, error)`, which
/// is false when the value there is of another kind. A type that has none of its own here is an object with
/// the keys that it lists (see KeyedDocument.h).
template <class T>
struct DocumentCodec;

/// What documents may do with types whose constructors and key lists are private: those name it as a friend.
class DocumentAccess {
  public:
    template <class T>
    /// A new value.
    static T make() {
        return T();
    }
    template <class T>
    /// A new object.
    static std::shared_ptr<T> makeShared() {
        return std::shared_ptr<T>(new T());
    }
    template <class T>
    /// The list of a type's keys.
    static constexpr auto keys() {
        return T::documentKeys();
    }
};

template <>
struct DocumentCodec<bool> {
    static void write(DocumentWriter& writer, bool value) { writer.boolean(value); }
    static bool read(DocumentValue value, bool& target, DocumentError* error) {
        const std::optional<bool> read = value.boolean();
        if (!read) return failDocument(error, "expected true or false");
        target = *read;
        return true;
    }
};

template <std::floating_point T>
struct DocumentCodec<T> {
    static void write(DocumentWriter& writer, T value) { writer.number(value); }
    static bool read(DocumentValue value, T& target, DocumentError* error) {
        const std::optional<double> read = value.number();
        if (!read) return failDocument(error, "expected a number");
        target = static_cast<T>(*read);
        return true;
    }
};

template <std::integral T>
struct DocumentCodec<T> {
    static void write(DocumentWriter& writer, T value) { writer.integer(value); }
    static bool read(DocumentValue value, T& target, DocumentError* error) {
        using Limits = std::numeric_limits<T>;
        const std::optional<std::int64_t> read = value.integer();
        if (!read || !std::in_range<T>(*read))
            return failDocument(error, "expected a whole number from " + std::to_string(Limits::min()) +
                                           " to " + std::to_string(Limits::max()));
        target = static_cast<T>(*read);
        return true;
    }
};

template <>
struct DocumentCodec<std::string> {
    static void write(DocumentWriter& writer, const std::string& value) { writer.text(value); }
    static bool read(DocumentValue value, std::string& target, DocumentError* error) {
        const std::optional<std::string_view> read = value.text();
        if (!read) return failDocument(error, "expected a text");
        target = *read;
        return true;
    }
};

/// Bytes stand as base64 text.
template <>
struct PEX_EXPORT DocumentCodec<Data> {
    static void write(DocumentWriter& writer, const Data& value);
    static bool read(DocumentValue value, Data& target, DocumentError* error);
};

/// An enumeration stands as its raw value.
template <RawValued E>
struct DocumentCodec<E> {
    static void write(DocumentWriter& writer, E value) { writer.text(rawValue(value)); }
    static bool read(DocumentValue value, E& target, DocumentError* error) {
        const std::optional<E> read = fromRawValue<E>(value.text().value_or(std::string_view()));
        if (read && value.text()) {
            target = *read;
            return true;
        }
        std::string choices;
        for (const auto& entry : Enumeration<E>::cases)
            choices += (choices.empty() ? "\"" : ", \"") + std::string(entry.rawValue) + '"';
        return failDocument(error, "expected one of " + choices);
    }
};

/// A point stands as [x, y].
template <>
struct DocumentCodec<CGPoint> {
    static void write(DocumentWriter& writer, CGPoint value) {
        writer.beginList();
        writer.number(value.x);
        writer.number(value.y);
        writer.endList();
    }
    static bool read(DocumentValue value, CGPoint& target, DocumentError* error) {
        if (value.count() != 2) return failDocument(error, "expected a list of two numbers");
        const std::optional<double> x = value.first().number();
        const std::optional<double> y = value.first().next().number();
        if (!x || !y) return failDocument(error, "expected a list of two numbers");
        target = {*x, *y};
        return true;
    }
};

/// A moment stands as the seconds since 1 January 2001, 00:00 UTC.
template <class Duration>
struct DocumentCodec<std::chrono::sys_time<Duration>> {
    using Moment = std::chrono::sys_time<Duration>;
    using Seconds = std::chrono::duration<double>;
    static constexpr std::chrono::sys_days epoch = std::chrono::January / 1 / 2001;

    static void write(DocumentWriter& writer, Moment value) { writer.number(Seconds(value - epoch).count()); }
    static bool read(DocumentValue value, Moment& target, DocumentError* error) {
        constexpr double limit = Seconds(Moment::max() - epoch).count() / 2; // far from any rounding
        const std::optional<double> read = value.number();
        if (!read || !(*read > -limit && *read < limit))
            return failDocument(error, "expected a number of seconds");
        target = epoch + std::chrono::round<Duration>(Seconds(*read));
        return true;
    }
};

/// An address stands as its absolute text.
template <>
struct DocumentCodec<std::optional<URL>> {
    static void write(DocumentWriter& writer, const std::optional<URL>& value) {
        writer.text(value->absoluteString());
    }
    static bool read(DocumentValue value, std::optional<URL>& target, DocumentError* error) {
        std::optional<URL> read = URL::parse(value.text().value_or(std::string_view()));
        if (!read) return failDocument(error, "expected an address");
        target = std::move(read);
        return true;
    }
};

/// An optional value that is there stands as itself; who writes it asks first whether it is.
template <class T>
struct DocumentCodec<std::optional<T>> {
    static void write(DocumentWriter& writer, const std::optional<T>& value) {
        DocumentCodec<T>::write(writer, *value);
    }
    static bool read(DocumentValue value, std::optional<T>& target, DocumentError* error) {
        T read = DocumentAccess::make<T>();
        if (!DocumentCodec<T>::read(value, read, error)) return false;
        target = std::move(read);
        return true;
    }
};

template <class T>
struct DocumentCodec<std::vector<T>> {
    static void write(DocumentWriter& writer, const std::vector<T>& values) {
        writer.beginList();
        for (const T& value : values)
            DocumentCodec<T>::write(writer, value);
        writer.endList();
    }
    static bool read(DocumentValue value, std::vector<T>& target, DocumentError* error) {
        if (!value.isList()) return failDocument(error, "expected a list");
        std::vector<T> read;
        read.reserve(std::min<std::size_t>(value.count(), 1024)); // the text does not choose how much at once
        DocumentValue element = value.first();
        for (std::size_t i = 0; i < value.count(); ++i, element = element.next()) {
            read.push_back(DocumentAccess::make<T>());
            if (!DocumentCodec<T>::read(element, read.back(), error))
                return failInside(error, '[' + std::to_string(i) + ']');
        }
        target = std::move(read);
        return true;
    }
};

} // namespace pex
