// SPDX-License-Identifier: Apache-2.0
// The two tables of a fleet, their columns, and how two rows of the same thing become one.

#pragma once

#include <stdint.h>

#include <string>
#include <variant>
#include <vector>

namespace fleet {

// What one device showed while it had this software. No text is null, and no number: what is not
// known is empty, or -1 where 0 could be meant.
struct DeviceRow {
    std::string device;
    std::string software, country, model;
    std::string pulled;       // "2026-11-20T10:00:00" in UTC; empty: not known
    std::string state, rule;  // the report's; of a device known by uploads alone, "uploaded"
    int64_t died = 0;         // 1: the daemon ended in the capture of its last failure
    int64_t episodes = 0;
    int64_t problems = 0;  // in its partition and its device.json
    std::string source;    // partition, upload
    std::string path;      // of the copy; empty for an upload
    std::string seen;      // see finish()
};

// A failure and all that followed it until a boot completed. What is said of the failure is said of
// the first one, which no later copy changes: those after it may follow from the recovery.
struct EpisodeRow {
    std::string device;
    std::string begin;  // "2026-11-15T11:08:10" by the device's clock; of an upload only the hour
    std::string software, country, model, pulled;  // of the copy that had it first
    std::string kind, signature;                   // see Signature.h
    int64_t signatureRules = 0;
    std::string number;  // "0x502564"; empty for what has no record
    std::string phase, detail;
    std::string milestone;  // not reached
    std::string lastEvent;  // as recorded
    std::string process, event;
    int64_t reason = 0;
    int64_t failures = 0;
    std::string lastTime, lastNumber;  // of its last failure
    std::string actions;               // "reboot (log), data reset (list)"
    std::string outcome;               // open, unclear, cured
    std::string curedBy;               // itself, reboot, user, reset, unknown; empty: not cured
    std::string end;
    int64_t boots = 0;
    int64_t secondsToCure = -1;
    int64_t evidenceLost = 0;
    int64_t died = 0;      // 1: the daemon ended in the capture of the last failure
    int64_t captured = 0;  // 1: captured logs of it are in the copy
    std::string source;    // partition, upload; recovery: only the report of a success
    std::string path;      // of the copy that the rest is from
    std::string seen, standing;
};

// Of several rows of the same thing. The result does not depend on the order they come in.
enum class Merge {
    KEY,    // what makes it the same thing
    FIRST,  // of the row with the smallest `seen`
    LAST,   // of the row with the largest `standing`; of devices, the largest `seen`
    KNOWN,  // what is neither empty nor "unknown", else "unknown", else empty; of two the larger
            // one
};

template <typename Row>
struct Column {
    const char* name;
    std::variant<std::string Row::*, int64_t Row::*> field;
    Merge merge;
};

// In the tables' own order. The same names stand in rows as JSON, in the stores and in the queries.
const std::vector<Column<DeviceRow>>& deviceColumns();
const std::vector<Column<EpisodeRow>>& episodeColumns();

// Makes all texts printable and no longer than they may be, and fills in `seen`: "1", or "0" for
// an upload; the time of the pull, 19 characters; a hash of the row, 16; of a device also `died`
// and `state`, so that the largest one says them. Of an episode also `standing`: a digit that is
// larger the more is known of the outcome, and `seen`.
void finish(DeviceRow& row);
void finish(EpisodeRow& row);

}  // namespace fleet
