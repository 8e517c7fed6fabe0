// SPDX-License-Identifier: Apache-2.0
// Tables of the fields of a YAML map. One row reads, writes and documents one field.

#include "lab/scenario/Fields.h"

#include <cmath>
#include <set>

#include "lab/base/Text.h"

namespace lab::fields {

namespace {

constexpr double kMaxSeconds = 1000000;

template <typename Value>
std::optional<Value> decoded(const Node& node) {
    Value value = {};
    if (!node.IsScalar() || !YAML::convert<Value>::decode(node, value)) return std::nullopt;
    return value;
}

template <typename Value>
Node plain(const Value& value) {
    return Node(value);
}

// The children of a node that `change` leaves, as it leaves them; a title stays.
Node copyOf(const Node& node, const std::function<Node(size_t, const Node&)>& change) {
    Node copy(node.Type());
    copy.SetStyle(node.Style());
    size_t i = 0;
    for (const auto& child : node) {
        if (node.IsSequence()) {
            const Node changed = change(i++, child);
            if (changed.IsDefined()) copy.push_back(changed);
        } else if (child.first.Scalar() == "about") {
            copy.force_insert(child.first, child.second);
        } else if (const Node changed = change(i++, child.second); changed.IsDefined()) {
            copy.force_insert(child.first, changed);
        }
    }
    return copy;
}

}  // namespace

void fail(const Node& node, const std::string& expected) {
    throw YAML::Exception(node.Mark(), expected);
}

std::vector<std::pair<Node, Node>> entriesOf(const Node& node, const std::string& what) {
    if (!node.IsMap()) fail(node, "expected " + what + " (a map)");
    std::vector<std::pair<Node, Node>> entries;
    std::set<std::string> keys;
    for (const auto& entry : node) {
        const std::string key = kText.of(entry.first, "a key");
        if (!keys.insert(key).second) fail(entry.first, "key '" + key + "' is there twice");
        entries.push_back(entry);
    }
    return entries;
}

bool saysMore(const Node& node, const Node& initial) {
    if (!node.IsScalar()) return node.size() > 0;
    return !initial.IsScalar() || node.Scalar() != initial.Scalar();
}

const Type<std::string> kText = {"a text", decoded<std::string>, plain<std::string>};
const Type<bool> kFlag = {"true or false", decoded<bool>, plain<bool>, {}, {"true", "false"}};
const Type<double> kNumber = {"a number", decoded<double>, plain<double>};

const Type<int64_t> kSeconds = {
        "seconds from 0 to 1000000",
        [](const Node& node) -> std::optional<int64_t> {
            const auto value = decoded<double>(node);
            if (!value || !(*value >= 0 && *value <= kMaxSeconds)) return std::nullopt;
            return std::lround(*value * 1000);
        },
        [](int64_t ms) { return Node(format("%.10g", static_cast<double>(ms) / 1000)); },
};

Type<int64_t> whole(int64_t least, int64_t most) {
    return {"a whole number from " + std::to_string(least) +
                    (most < INT64_MAX ? " to " + std::to_string(most) : ""),
            [=](const Node& node) {
                const auto value = decoded<int64_t>(node);
                return value && *value >= least && *value <= most ? value : std::nullopt;
            },
            plain<int64_t>};
}

std::vector<Shorter> shorterThan(const Node& node) {
    std::vector<Shorter> all;
    if (node.IsScalar() || (node.IsMap() && node.Style() == YAML::EmitterStyle::Flow)) return all;
    std::vector<Node> children;
    copyOf(node, [&](size_t, const Node& child) { return children.emplace_back(child); });
    // All, then in halves, quarters and so on, then one by one.
    for (size_t size = children.size(); size > 0; size /= 2) {
        for (size_t from = 0; from < children.size(); from += size) {
            all.push_back([=] {
                return copyOf(node, [=](size_t i, const Node& child) {
                    return i >= from && i < from + size ? Node(YAML::NodeType::Undefined) : child;
                });
            });
        }
    }
    // The last first: those are the boots.
    for (size_t c = children.size(); c-- > 0;) {
        for (const Shorter& shorter : shorterThan(children[c])) {
            all.push_back([=] {
                return copyOf(node, [=](size_t i, const Node& child) {
                    return i == c ? shorter() : child;
                });
            });
        }
    }
    return all;
}

}  // namespace lab::fields
