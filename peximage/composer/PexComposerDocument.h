#pragma once

// The keys of a composer's document and the texts of its enumerations: the end of PexComposer.h, not to be
// included by itself.
#include "peximage/platform/foundation/Enumeration.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/varda/PexId.h"

#include <tuple>

namespace pex {

/// In the composer the raw value is the name of the case, and people see it with a capital first letter.
struct ComposerEnumeration {
    /// The first letter is shown as a capital.
    static constexpr bool capitalized = true;
};

template <>
struct Enumeration<PexComposer::Layer::LayerType> : ComposerEnumeration {
    using E = PexComposer::Layer::LayerType;
    static constexpr EnumerationCase<E> cases[] = {
        {E::image, "image"}, {E::text, "text"}, {E::shape, "shape"}};
};

template <>
struct Enumeration<PexComposer::Layer::Image::ImageType> : ComposerEnumeration {
    using E = PexComposer::Layer::Image::ImageType;
    static constexpr EnumerationCase<E> cases[] = {
        {E::url, "url"}, {E::shareApp, "shareApp"}, {E::ingested, "ingested"}};
};

template <>
struct Enumeration<PexComposer::Layer::Shape::ShapeType> : ComposerEnumeration {
    using E = PexComposer::Layer::Shape::ShapeType;
    static constexpr EnumerationCase<E> cases[] = {{E::rectangle, "rectangle"}, {E::circle, "circle"}};
};

template <>
struct Enumeration<PexComposer::Layer::Shape::Style::FillStyle> : ComposerEnumeration {
    using E = PexComposer::Layer::Shape::Style::FillStyle;
    static constexpr EnumerationCase<E> cases[] = {{E::color, "color"}};
};

template <>
struct Enumeration<PexComposer::Layer::Text::Alignment> : ComposerEnumeration {
    using E = PexComposer::Layer::Text::Alignment;
    static constexpr EnumerationCase<E> cases[] = {
        {E::left, "left"}, {E::center, "center"}, {E::right, "right"}};
};

template <>
struct Enumeration<PexComposer::Guide::Orientation> : ComposerEnumeration {
    using E = PexComposer::Guide::Orientation;
    static constexpr EnumerationCase<E> cases[] = {{E::horizontal, "horizontal"}, {E::vertical, "vertical"}};
};

constexpr auto PexComposer::Layer::Image::ResourceAccess::documentKeys() {
    using keyed::optional;
    return std::tuple(optional("url", &ResourceAccess::url),
                      optional("shareAppId", &ResourceAccess::shareAppId),
                      optional("ingestedId", &ResourceAccess::ingestedId));
}

constexpr auto PexComposer::Layer::Image::documentKeys() {
    using keyed::required;
    return std::tuple(required("type", &Image::type), required("ratio", &Image::ratio),
                      required("resourceAccess", &Image::resourceAccess));
}

constexpr auto PexComposer::Layer::Shape::Style::documentKeys() {
    using keyed::required;
    return std::tuple(required("strokeWidth", &Style::strokeWidth), required("fill", &Style::fill),
                      required("fillStyle", &Style::fillStyle), required("fillColor", &Style::fillColor));
}

constexpr auto PexComposer::Layer::Shape::documentKeys() {
    return std::tuple(keyed::required("type", &Shape::type), keyed::required("style", &Shape::style));
}

constexpr auto PexComposer::Layer::Text::documentKeys() {
    using keyed::lenient;
    return std::tuple(lenient("text", &Text::text),
                      lenient("font", &Text::font, [] { return PexFont::Font::courier(12); }),
                      lenient("alignment", &Text::alignment), lenient("color", &Text::color));
}

constexpr auto PexComposer::Layer::Transform::Scale::documentKeys() {
    return std::tuple(keyed::required("x", &Scale::x), keyed::required("y", &Scale::y));
}

constexpr auto PexComposer::Layer::Transform::documentKeys() {
    using keyed::required;
    return std::tuple(required("location", &Transform::location), required("scale", &Transform::scale),
                      required("rotation", &Transform::rotation), required("opacity", &Transform::opacity));
}

constexpr auto PexComposer::Layer::documentKeys() {
    using keyed::required;
    return std::tuple(required("id", &Layer::id), required("layerType", &Layer::layerType),
                      required("image", &Layer::image), required("shape", &Layer::shape),
                      required("text", &Layer::text), required("transform", &Layer::transform));
}

constexpr auto PexComposer::Guide::documentKeys() {
    using keyed::lenient;
    return std::tuple(lenient("id", &Guide::id, [] { return PexId::newId("", "", true); }),
                      lenient("orientation", &Guide::orientation), lenient("location", &Guide::location),
                      lenient("intrinsic", &Guide::intrinsic));
}

constexpr auto PexComposer::SearchAndReplace::documentKeys() {
    return std::tuple(keyed::required("search", &SearchAndReplace::search),
                      keyed::required("replace", &SearchAndReplace::replace));
}

constexpr auto PexComposer::documentKeys() {
    using keyed::optional;
    using keyed::required;
    return std::tuple(required("id", &PexComposer::id), required("name", &PexComposer::name),
                      required("ratio", &PexComposer::ratio), required("layerList", &PexComposer::layerList),
                      required("guideList_", &PexComposer::guideList_),
                      required("bgColor", &PexComposer::bgColor),
                      required("shouldBeDeleted", &PexComposer::shouldBeDeleted),
                      optional("selectedLayerId", &PexComposer::selectedLayerId));
}

} // namespace pex
