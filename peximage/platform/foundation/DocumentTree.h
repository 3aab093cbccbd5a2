#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/DocumentError.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

class DocumentValue;

/// What a text must stay within to be read as a document, so that a hostile one costs bounded memory.
struct DocumentLimits {
    std::size_t bytes = std::size_t{256} << 20; ///< Of the text; at most 4 GiB.
    std::size_t values = 16'000'000;            ///< Numbers, texts, members and so on, counted together.
    std::size_t depth = 128;                    ///< Lists and objects inside one another.
};

/// A JSON text as read: its values in one flat run, each container followed by what it holds. Immutable.
class PEX_EXPORT DocumentTree {
  public:
    /// The kinds of values. An `integer` is a number written without a fraction.
    enum class Kind : std::uint8_t { null, boolean, integer, number, text, list, object };

    /// The tree of a text. Absent when it is no JSON (strict, UTF-8, nothing behind it), when a number is out
    /// of a double's range, or when it is past a limit; `error` then tells why.
    static std::optional<DocumentTree> parse(std::string_view text, DocumentError* error = nullptr,
                                             const DocumentLimits& limits = {});

    /// The value that the text is.
    DocumentValue root() const;

  private:
    friend class DocumentValue;
    friend class DocumentTreeBuilder;

    struct Node {
        explicit Node(Kind kindOfValue) : kind(kindOfValue) {}

        Kind kind;
        std::uint32_t size = 0; // bytes of a text, values in a list, members of an object
        union {
            bool boolean;
            std::int64_t integer = 0;
            double number;
            std::size_t offset; // where a text begins
            std::size_t end;    // the node after a container and all it holds
        };
    };

    std::vector<Node> nodes_;
    std::string texts_;
};

/// One value of a tree, or nothing. Small, copied freely; valid as long as its tree.
class PEX_EXPORT DocumentValue {
  public:
    /// The kinds of values.
    using Kind = DocumentTree::Kind;

    DocumentValue() = default;

    /// False for nothing, such as a member that an object does not have.
    bool exists() const { return tree_ != nullptr; }
    /// True of a null.
    bool isNull() const { return exists() && node().kind == Kind::null; }
    /// True of an object.
    bool isObject() const { return exists() && node().kind == Kind::object; }
    /// True of a list.
    bool isList() const { return exists() && node().kind == Kind::list; }

    /// A flag; absent for everything else.
    std::optional<bool> boolean() const;
    /// A number, also one written without a fraction, and an object like {"nonFinite":"nan"}, "inf" or
    /// "-inf", which stands for what JSON has no form for. A text is no number.
    std::optional<double> number() const;
    /// A number without a fraction ("3" and "3.0" alike) that a 64-bit integer holds.
    std::optional<std::int64_t> integer() const;
    /// A text, valid as long as the tree; absent for everything else.
    std::optional<std::string_view> text() const;

    /// How many values a list holds; 0 for everything else.
    std::size_t count() const { return isList() ? node().size : 0; }
    /// The first value inside a list that is not empty; from there on `next`.
    DocumentValue first() const { return {tree_, index_ + 1}; }
    /// The value after this one in its list.
    DocumentValue next() const { return {tree_, following()}; }

    /// Looks up an object's members by name: `found[i]` becomes the value of `names[i]`, or nothing. Of
    /// several members of one name the last counts. Quickest when the members come in the order of `names`.
    void locate(std::span<const std::string_view> names, std::span<DocumentValue> found) const;

  private:
    friend class DocumentTree;
    DocumentValue(const DocumentTree* tree, std::size_t index) : tree_(tree), index_(index) {}
    const DocumentTree::Node& node() const { return tree_->nodes_[index_]; }
    std::size_t following() const {
        return node().kind == Kind::list || node().kind == Kind::object ? node().end : index_ + 1;
    }

    const DocumentTree* tree_ = nullptr;
    std::size_t index_ = 0;
};

} // namespace pex
