// SPDX-License-Identifier: Apache-2.0
// Keeps a text that is no scenario from costing much memory or time: its size, how deep it is
// nested, and what its aliases stand for.

#include "lab/scenario/YamlBounds.h"

#include <map>
#include <sstream>
#include <utility>
#include <vector>

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

namespace lab {

namespace {

using YAML::anchor_t;
using YAML::Mark;

constexpr size_t kDeepest = 32;          // a scenario needs nine
constexpr size_t kMostBytes = 64 << 20;  // in memory, each alias counted as what it stands for
constexpr size_t kNodeBytes = 256;       // about what a node takes

// Adds up what the nodes take, in their order, and stops reading where that is too much.
class Bounds : public YAML::EventHandler {
public:
    void OnDocumentStart(const Mark& mark) override {
        if (mDocuments++ > 0) throw YAML::Exception(mark, "expected one document");
    }
    void OnDocumentEnd() override {}
    void OnNull(const Mark& mark, anchor_t anchor) override {
        addScalar(mark, anchor, 0);
    }
    void OnScalar(const Mark& mark, const std::string&, anchor_t anchor,
                  const std::string& value) override {
        addScalar(mark, anchor, value.size());
    }
    void OnAlias(const Mark& mark, anchor_t anchor) override {
        const auto named = mNamed.find(anchor);
        if (named == mNamed.end()) throw YAML::Exception(mark, "an alias stands for itself");
        add(mark, named->second);
    }
    void OnSequenceStart(const Mark& mark, const std::string&, anchor_t anchor,
                         YAML::EmitterStyle::value) override {
        open(mark, anchor);
    }
    void OnSequenceEnd() override {
        close();
    }
    void OnMapStart(const Mark& mark, const std::string&, anchor_t anchor,
                    YAML::EmitterStyle::value) override {
        open(mark, anchor);
    }
    void OnMapEnd() override {
        close();
    }

private:
    void add(const Mark& mark, size_t bytes) {
        mBytes += bytes;
        if (mBytes > kMostBytes) {
            throw YAML::Exception(mark,
                                  "too much to read: with what its aliases stand for, more "
                                  "than 64 MiB");
        }
    }
    void addScalar(const Mark& mark, anchor_t anchor, size_t size) {
        add(mark, kNodeBytes + size);
        if (anchor != 0) mNamed[anchor] = kNodeBytes + size;
    }
    void open(const Mark& mark, anchor_t anchor) {
        mOpen.emplace_back(anchor, mBytes);
        if (mOpen.size() > kDeepest) throw YAML::Exception(mark, "nested too deep");
        add(mark, kNodeBytes);
    }
    void close() {
        const auto [anchor, before] = mOpen.back();
        if (anchor != 0) mNamed[anchor] = mBytes - before;
        mOpen.pop_back();
    }

    int mDocuments = 0;
    size_t mBytes = 0;
    std::vector<std::pair<anchor_t, size_t>> mOpen;  // maps and lists, and the sum before each
    std::map<anchor_t, size_t> mNamed;               // bytes of what aliases stand for
};

}  // namespace

void checkYamlBounds(const std::string& text) {
    std::istringstream in(text);
    YAML::Parser parser(in);
    Bounds bounds;
    while (parser.HandleNextDocument(bounds)) {
    }
}

}  // namespace lab
