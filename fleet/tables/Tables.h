// SPDX-License-Identifier: Apache-2.0
// What the rows of a fleet come to, as data: made by the store's queries, and judged here.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "fleet/store/Store.h"
#include "fleet/tables/Statistics.h"

namespace fleet {

// Which rows are looked at, and what is compared. Empty: all, or what is chosen by itself.
struct Choice {
    std::string software;  // the one in question; by itself the newest that ten devices have
    std::string against;   // what it is compared with; by itself all that are older
    std::string since;     // "2026-11-01T00:00:00": episodes that began, devices pulled since
    std::string country;
    std::string signature;
    double level = 0.05;  // of being wrong once in all tests of a table
};

// Devices by the state in the copy that was pulled last.
struct StateCount {
    std::string state;
    int64_t devices = 0;
};

struct Software {
    std::string name;
    int64_t devices = 0;
};

// Of a signature's devices those that had it with this software, of all that were seen with it.
struct Rate {
    std::string software;
    Share share;
};

struct SignatureCount {
    std::string signature, kind;
    int64_t devices = 0;
    int64_t episodes = 0;
    std::string first, last;  // begin of an episode
    int64_t open = 0;         // devices that no boot has cured of it
    std::vector<Rate> rates;  // the latest software first
};

// Two shares of devices, and whether they differ by more than chance.
struct Difference {
    std::string name;     // of the signature, country or model
    std::string country;  // empty: everywhere
    Share one, other;
    Fisher fisher;
    double level = 1;  // see adjusted()
};

// A signature whose rate differs.
struct Change {
    std::string signature;
    bool more = false;
    double level = 1;  // the smallest of those below
    Difference everywhere;
    std::vector<Difference> countries;  // where it differs, the surest first
};

struct Changes {
    std::string software;             // empty: there is nothing to compare
    std::vector<std::string> before;  // the latest first
    Share devices;                    // some: with the software, all: and with those before
    size_t tests = 0;
    std::vector<Change> found;  // what has become more first, then the surest first
};

struct Cure {
    std::string by;  // reboot, user, reset, itself, unknown; open, unclear for none
    int64_t episodes = 0;
    std::optional<int64_t> median;  // seconds; none where none is known
};

struct Places {
    std::vector<Difference> countries, models;  // by devices with a failure; all that were tested
    size_t tests = 0;
};

// A device to look at.
struct Look {
    std::string signature, device;
    std::string software, country, model, begin;
    bool logs = false;  // of the failure are there
    bool open = false;
    std::string path;
};

struct Tables {
    Choice choice;
    int64_t devices = 0;
    int64_t failed = 0;  // that had an episode
    int64_t episodes = 0;
    int64_t died = 0;  // whose daemon ended in the capture of its last failure
    std::vector<StateCount> states;
    std::vector<Software> softwares;  // the latest first
    int64_t signatureCount = 0;       // of which the most frequent are below
    std::vector<SignatureCount> signatures;
    Changes changes;
    std::vector<Cure> cures;
    Places places;
    std::vector<Look> looks;
};

// Throws what the store throws, and std::runtime_error for a choice of software that no device was
// seen with.
Tables tablesOf(Store& store, const Choice& choice);

}  // namespace fleet
