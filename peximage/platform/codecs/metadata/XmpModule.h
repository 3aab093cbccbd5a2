#pragma once

#include <cstddef>

namespace pex {

/// What the module that reads XMP packets offers. Calls may run at once.
struct XmpModule {
    static constexpr int version = 1;

    /// An element of the packet, or an attribute that declares no namespace. Positions are those of bytes.
    struct Node {
        const char* name;       // the namespace, a line feed, the name in it
        const char* text;       // null where elements are inside
        std::size_t begin, end; // an attribute's with the white space before it
        // What stands between the tags or the quotes; both 0 for an element that has but one tag.
        std::size_t valueBegin, valueEnd;
        int depth; // rdf:RDF is 0, what is said of the picture itself 2
        bool isAttribute;
    };

    /// Tells every node, an element behind all that it holds. False, perhaps after some, for what is no
    /// well-formed XML in UTF-8, and for what declares a document type.
    bool (*scan)(const char* packet, std::size_t size, void (*found)(void* context, const Node& node),
                 void* context);
};

} // namespace pex
