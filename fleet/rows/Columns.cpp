// SPDX-License-Identifier: Apache-2.0
// The two tables of a fleet, their columns, and how two rows of the same thing become one.

#include "fleet/rows/Columns.h"

#include <inttypes.h>
#include <stdio.h>

#include "common/text/Printable.h"

namespace fleet {

namespace {

constexpr size_t kMostOfText = 512;  // bytes; a path may have more
constexpr size_t kMostOfPath = 4096;
constexpr size_t kTimeLength = 19;

// FNV-1a, which is the same on every machine.
class Hash {
public:
    void add(const std::string& text) {
        for (const char c : text) step(static_cast<unsigned char>(c));
        step(0x1f);
    }

    std::string text() const {
        char digits[17];
        snprintf(digits, sizeof(digits), "%016" PRIx64, mValue);
        return digits;
    }

private:
    void step(uint64_t byte) {
        mValue = (mValue ^ byte) * 0x100000001b3;
    }

    uint64_t mValue = 0xcbf29ce484222325;
};

// What rows are ordered by, none of which may be part of the hash.
template <typename Row>
std::string orderOf(Row& row, const std::vector<Column<Row>>& columns) {
    Hash hash;
    for (const Column<Row>& column : columns) {
        if (const auto* number = std::get_if<int64_t Row::*>(&column.field)) {
            hash.add(std::to_string(row.*(*number)));
            continue;
        }
        std::string& text = row.*std::get<std::string Row::*>(column.field);
        const size_t most = &text == &row.path ? kMostOfPath : kMostOfText;
        text = text::shortened(text::printable(text), most);
        if (&text != &row.seen) hash.add(text);
    }
    std::string pulled = row.pulled;
    pulled.resize(kTimeLength, ' ');
    return (row.source == "partition" ? "1" : "0") + pulled + hash.text();
}

}  // namespace

const std::vector<Column<DeviceRow>>& deviceColumns() {
    using Row = DeviceRow;
    static const std::vector<Column<Row>> kColumns = {
            {"device", &Row::device, Merge::KEY},      {"software", &Row::software, Merge::KEY},
            {"country", &Row::country, Merge::KEY},    {"model", &Row::model, Merge::KEY},
            {"pulled", &Row::pulled, Merge::LAST},     {"state", &Row::state, Merge::LAST},
            {"rule", &Row::rule, Merge::LAST},         {"died", &Row::died, Merge::LAST},
            {"episodes", &Row::episodes, Merge::LAST}, {"problems", &Row::problems, Merge::LAST},
            {"source", &Row::source, Merge::LAST},     {"path", &Row::path, Merge::LAST},
            {"seen", &Row::seen, Merge::LAST},
    };
    return kColumns;
}

const std::vector<Column<EpisodeRow>>& episodeColumns() {
    using Row = EpisodeRow;
    static const std::vector<Column<Row>> kColumns = {
            {"device", &Row::device, Merge::KEY},
            {"begin", &Row::begin, Merge::KEY},
            {"software", &Row::software, Merge::FIRST},
            {"country", &Row::country, Merge::FIRST},
            {"model", &Row::model, Merge::FIRST},
            {"pulled", &Row::pulled, Merge::FIRST},
            {"kind", &Row::kind, Merge::LAST},
            {"signature", &Row::signature, Merge::LAST},
            {"signature_rules", &Row::signatureRules, Merge::LAST},
            {"number", &Row::number, Merge::LAST},
            {"phase", &Row::phase, Merge::LAST},
            {"detail", &Row::detail, Merge::LAST},
            {"milestone", &Row::milestone, Merge::LAST},
            {"last_event", &Row::lastEvent, Merge::LAST},
            {"process", &Row::process, Merge::LAST},
            {"event", &Row::event, Merge::LAST},
            {"reason", &Row::reason, Merge::LAST},
            {"failures", &Row::failures, Merge::LAST},
            {"last_time", &Row::lastTime, Merge::LAST},
            {"last_number", &Row::lastNumber, Merge::LAST},
            {"actions", &Row::actions, Merge::LAST},
            {"outcome", &Row::outcome, Merge::LAST},
            {"cured_by", &Row::curedBy, Merge::KNOWN},
            {"end", &Row::end, Merge::LAST},
            {"boots", &Row::boots, Merge::LAST},
            {"seconds_to_cure", &Row::secondsToCure, Merge::LAST},
            {"evidence_lost", &Row::evidenceLost, Merge::LAST},
            {"died", &Row::died, Merge::LAST},
            {"captured", &Row::captured, Merge::LAST},
            {"source", &Row::source, Merge::LAST},
            {"path", &Row::path, Merge::LAST},
            {"seen", &Row::seen, Merge::FIRST},
            {"standing", &Row::standing, Merge::LAST},
    };
    return kColumns;
}

void finish(DeviceRow& row) {
    row.seen.clear();
    const std::string order = orderOf(row, deviceColumns());
    row.seen = order + (row.died > 0 ? "1" : "0") + row.state;
}

void finish(EpisodeRow& row) {
    row.seen.clear();
    row.standing.clear();
    row.seen = orderOf(row, episodeColumns());
    // A later copy in which the record is damaged doesn't undo what an earlier one told.
    const char known = row.outcome == "cured" ? '2' : row.outcome == "unclear" ? '1' : '0';
    row.standing = known + row.seen;
}

}  // namespace fleet
