// SPDX-License-Identifier: Apache-2.0
// Tables of the fields of a YAML map. One row reads, writes and documents one field.

#pragma once

#include <stdint.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <yaml-cpp/yaml.h>

#include "lab/base/Nearest.h"

namespace lab::fields {

using YAML::Node;

// Throws a YAML::Exception with the node's place.
[[noreturn]] void fail(const Node& node, const std::string& expected);

// Keys and values of a map. Every key is a text, and none is there twice.
std::vector<std::pair<Node, Node>> entriesOf(const Node& node, const std::string& what);

// Whether a node says anything, and nothing that another says.
bool saysMore(const Node& node, const Node& initial);

using Tables = std::vector<std::string>;  // of documentation, as Markdown

// How a value stands in the file.
template <typename Value>
struct Type {
    std::string name;                                       // with its range
    std::function<std::optional<Value>(const Node&)> read;  // nothing from another type
    std::function<Node(const Value&)> write;
    std::function<void(Tables&)> document = {};  // the maps in it
    std::vector<std::string> choices = {};       // where it is one of few texts

    // `about` says what it is, up to a semicolon.
    Value of(const Node& node, const std::string& about) const {
        if (std::optional<Value> value = read(node)) return *std::move(value);
        fail(node, "expected " + about.substr(0, about.find(';')) + " (" + name + ")" +
                           didYouMean(node.Scalar(), choices));
    }

    Node nodeOf(const Value& value) const {
        return write(value);
    }
    Node nodeOf(const std::optional<Value>& value) const {
        return value ? write(*value) : Node();
    }
};

extern const Type<std::string> kText;
extern const Type<bool> kFlag;
extern const Type<double> kNumber;
extern const Type<int64_t> kSeconds;  // in the file; else milliseconds
Type<int64_t> whole(int64_t least, int64_t most = INT64_MAX);

// A name for each enumerator, in their order.
template <typename Enum, size_t count>
Type<Enum> choice(const char* const (&names)[count]) {
    std::string all;
    for (const char* name : names) all.append(all.empty() ? "one of " : ", ").append(name);
    return {all,
            [&names](const Node& node) {
                const auto found = std::find(names, names + count, node.Scalar());
                return found == names + count ? std::nullopt
                                              : std::optional(static_cast<Enum>(found - names));
            },
            [&names](Enum value) { return Node(names[static_cast<size_t>(value)]); },
            {},
            {names, names + count}};
}

template <typename Value>
Type<std::vector<Value>> listOf(const Type<Value>& type) {
    return {"a list, each " + type.name,
            [=](const Node& node) -> std::optional<std::vector<Value>> {
                if (!node.IsSequence()) return std::nullopt;
                std::vector<Value> list;
                for (const Node& entry : node) list.push_back(type.of(entry, "an entry"));
                return list;
            },
            [=](const std::vector<Value>& list) {
                Node node;
                for (const Value& value : list) node.push_back(type.write(value));
                return node;
            },
            type.document};
}

// `key` says which keys there may be.
template <typename Value>
Type<std::map<std::string, Value>> mapOf(const Type<std::string>& key, const Type<Value>& type) {
    using Map = std::map<std::string, Value>;
    return {"a map from " + key.name + " to " + type.name,
            [=](const Node& node) {
                Map map;
                for (const auto& [name, value] : entriesOf(node, "names and values")) {
                    map.emplace(key.of(name, "a name"), type.of(value, "a value"));
                }
                return std::optional(map);
            },
            [=](const Map& map) {
                Node node;
                for (const auto& [key, value] : map) node.force_insert(key, type.write(value));
                return node;
            }};
}

// A part of an owner: a member, or what two functions make of several.
template <typename Owner, typename Value>
struct Part {
    std::function<Value(const Owner&)> get;
    std::function<void(Owner&, Value)> set;  // may throw std::invalid_argument(what was expected)
};

template <typename Owner>
struct Row {
    std::string name;
    std::string type;
    std::string byDefault;
    std::string about;
    std::function<void(const Node&, Owner&)> read;
    std::function<Node(const Owner&)> write;  // null: it is left out
    std::function<void(Tables&)> document;
};

// The fields of a map. They are read in their order here, whatever it is in the file.
template <typename Owner>
class Fields {
public:
    explicit Fields(const char* what, YAML::EmitterStyle::value style = YAML::EmitterStyle::Block)
        : mWhat(what), mStyle(style) {}

    // Left out where it has the value of a new owner, or is empty.
    template <typename Member, typename Value>
    void add(const std::string& name, const Part<Owner, Member>& part, const Type<Value>& type,
             const std::string& about) {
        const Node initial = type.nodeOf(part.get(Owner()));
        mRows.push_back({name, type.name, initial.IsScalar() ? YAML::Dump(initial) : "", about,
                         [=](const Node& node, Owner& o) { part.set(o, type.of(node, about)); },
                         [=](const Owner& owner) {
                             const Node node = type.nodeOf(part.get(owner));
                             return saysMore(node, initial) ? node : Node();
                         },
                         type.document});
    }
    template <typename Member, typename Value>
    void add(const std::string& name, Member Owner::*member, const Type<Value>& type,
             const std::string& about) {
        add(name,
            Part<Owner, Member>{[=](const Owner& owner) { return owner.*member; },
                                [=](Owner& owner, Member value) {
                                    owner.*member = std::move(value);
                                }},
            type, about);
    }

    // Fields of this owner in a map of their own.
    void add(const std::string& name, const Fields& fields, const std::string& about) {
        mRows.push_back({name, fields.mWhat, "", about,
                         [=](const Node& node, Owner& owner) { fields.read(node, owner); },
                         [=](const Owner& owner) {
                             const Node node = fields.write(owner);
                             return node.size() == 0 ? Node() : node;
                         },
                         [=](Tables& tables) { fields.document(tables); }});
    }

    // As Part::set, when all fields are read; gets the map too.
    void atLast(std::function<void(Owner&, const Node&)> work) {
        mLast = std::move(work);
    }

    void read(const Node& node, Owner& owner) const {
        const auto entries = entriesOf(node, mWhat);
        for (const auto& entry : entries) checkKey(entry.first);
        const Node* place = nullptr;
        try {
            for (const Row<Owner>& row : mRows) {
                for (const auto& [key, value] : entries) {
                    place = &value;
                    if (key.Scalar() == row.name) row.read(value, owner);
                }
            }
            place = &node;
            if (mLast) mLast(owner, node);
        } catch (const std::invalid_argument& error) {
            fail(*place, error.what());
        }
    }

    Node write(const Owner& owner) const {
        Node map(YAML::NodeType::Map);
        map.SetStyle(mStyle);
        for (const Row<Owner>& row : mRows) {
            const Node value = row.write(owner);
            if (!value.IsNull()) map.force_insert(row.name, value);
        }
        return map;
    }

    // Its own table, and those of the maps in it; each once.
    void document(Tables& tables) const {
        std::string table = "| " + mWhat + " | value | by default | |\n|---|---|---|---|\n";
        for (const Row<Owner>& row : mRows) {
            table += "| `" + row.name + "` | " + row.type + " | " + row.byDefault + " | " +
                     row.about + " |\n";
        }
        if (std::find(tables.begin(), tables.end(), table) != tables.end()) return;
        tables.push_back(table);
        for (const Row<Owner>& row : mRows) {
            if (row.document) row.document(tables);
        }
    }

    Type<Owner> type() const {
        return {mWhat,
                [fields = *this](const Node& node) {
                    Owner owner;
                    fields.read(node, owner);
                    return std::optional(owner);
                },
                [fields = *this](const Owner& owner) { return fields.write(owner); },
                [fields = *this](Tables& tables) { fields.document(tables); }};
    }

private:
    void checkKey(const Node& key) const {
        std::vector<std::string> names;
        std::string known;
        for (const Row<Owner>& row : mRows) {
            if (row.name == key.Scalar()) return;
            names.push_back(row.name);
            known.append(known.empty() ? "; known: " : ", ").append(row.name);
        }
        const std::string meant = didYouMean(key.Scalar(), names);
        fail(key,
             "unknown key '" + key.Scalar() + "' in " + mWhat + (meant.empty() ? known : meant));
    }

    std::string mWhat;
    YAML::EmitterStyle::value mStyle;
    std::vector<Row<Owner>> mRows;
    std::function<void(Owner&, const Node&)> mLast;
};

// The same node with one part left out, for each part that can be: some children of a block, or a
// part of a child. Large parts come first, and a title stays.
using Shorter = std::function<Node()>;
std::vector<Shorter> shorterThan(const Node& node);

}  // namespace lab::fields
