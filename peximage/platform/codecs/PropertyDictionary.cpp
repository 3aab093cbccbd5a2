#include "peximage/platform/codecs/PropertyDictionary.h"

namespace pex {

template <class T>
const T* PropertyDictionary::find(std::string_view key) const {
    const auto found = values_.find(key);
    return found != values_.end() ? std::get_if<T>(&found->second) : nullptr;
}

void PropertyDictionary::set(std::string_view key, const PropertyDictionary& nested) {
    if (!nested.empty()) set(key, std::make_shared<const PropertyDictionary>(nested));
}

const std::string* PropertyDictionary::text(std::string_view key) const { return find<std::string>(key); }

std::optional<std::int64_t> PropertyDictionary::integer(std::string_view key) const {
    const auto* value = find<std::int64_t>(key);
    return value ? std::optional(*value) : std::nullopt;
}

std::optional<double> PropertyDictionary::number(std::string_view key) const {
    if (const auto* value = find<double>(key)) return *value;
    const std::optional<std::int64_t> whole = integer(key);
    return whole ? std::optional(static_cast<double>(*whole)) : std::nullopt;
}

const PropertyDictionary& PropertyDictionary::dictionary(std::string_view key) const {
    static const auto& none = *new PropertyDictionary; // never freed: work goes on while the process ends
    const auto* value = find<Nested>(key);
    return value ? **value : none;
}

} // namespace pex
