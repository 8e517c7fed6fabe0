// SPDX-License-Identifier: Apache-2.0
// The tables of a fleet for a terminal of 80 columns.

#include "fleet/show/Text.h"

#include <stdio.h>

#include <algorithm>
#include <sstream>

#include "common/text/Printable.h"

namespace fleet {

namespace {

constexpr size_t kWidth = 80;
constexpr size_t kMostSignatures = 10;
constexpr size_t kMostSoftwares = 5;
constexpr size_t kMostChanges = 10;
constexpr size_t kMostPlaces = 10;

std::string count(int64_t number) {
    return text::grouped(static_cast<size_t>(std::max<int64_t>(0, number)));
}

std::string counted(int64_t number, const char* what) {
    return count(number) + " " + what + (number == 1 ? "" : "s");
}

// Columns that a text takes, as far as one character takes one.
size_t widthOf(const std::string& text) {
    return static_cast<size_t>(
            std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string padded(const std::string& text, size_t width, bool right = false) {
    const size_t here = widthOf(text);
    const std::string blanks(width > here ? width - here : 0, ' ');
    return right ? blanks + text : text + blanks;
}

// A paragraph whose later lines are indented; a word that is too long keeps its own line.
std::string folded(const std::string& text, const std::string& first, const std::string& later) {
    std::istringstream words(text::printable(text));
    std::string lines;
    std::string line = first;
    bool begun = false;
    for (std::string word; words >> word;) {
        if (begun && widthOf(line) + 1 + widthOf(word) > kWidth) {
            lines += line + "\n";
            line = later;
            begun = false;
        }
        line += (begun ? " " : "") + word;
        begun = true;
    }
    return lines + line + "\n";
}

std::string name(const std::string& text, const char* without) {
    return text.empty() ? without : text::shortened(text::printable(text), 40);
}

std::string rateLine(const std::string& label, size_t width, const Share& share) {
    const Interval interval = wilson(share);
    std::string line = "    " + padded(label, width) + "  " + padded(fraction(share), 20, true);
    if (share.all == 0) return line + "\n";
    const double rate = static_cast<double>(share.some) / static_cast<double>(share.all);
    return line + "  " + padded(percent(rate), 9, true) + "  (" + percent(interval.low) + " to " +
           percent(interval.high) + ")\n";
}

std::string levelText(double level) {
    char text[32];
    snprintf(text, sizeof(text), "%.2g", level);
    return text;
}

// "20 s", "4 min", "3 h", "2 days": a median needs no more.
std::string duration(int64_t seconds) {
    constexpr int64_t kMinute = 60;
    constexpr int64_t kHour = 60 * kMinute;
    constexpr int64_t kDay = 24 * kHour;
    if (seconds < 2 * kMinute) return count(seconds) + " s";
    if (seconds < 2 * kHour) return count(seconds / kMinute) + " min";
    if (seconds < 2 * kDay) return count(seconds / kHour) + " h";
    return count(seconds / kDay) + " days";
}

std::string overview(const Tables& tables) {
    std::string text = counted(tables.devices, "device") + ", " + count(tables.failed) +
                       " with a failure, in " + counted(tables.episodes, "episode") + "\n";
    for (const StateCount& state : tables.states) {
        text += "  " + padded(name(state.state, "unknown"), 18) +
                padded(count(state.devices), 12, true) + "\n";
    }
    text += "  " + padded("died in a capture", 18) + padded(count(tables.died), 12, true) + "\n";
    return text;
}

std::string signatures(const Tables& tables) {
    std::string text = "\nSIGNATURES by devices";
    const size_t shown = std::min(kMostSignatures, tables.signatures.size());
    const int64_t out = tables.signatureCount - static_cast<int64_t>(shown);
    if (out > 0) text += ", the first " + count(static_cast<int64_t>(shown));
    text += "\n";
    if (shown == 0) text += "  none\n";
    for (size_t i = 0; i < shown; ++i) {
        const SignatureCount& each = tables.signatures[i];
        text += folded(each.signature, "  ", "    ");
        text += "    " + counted(each.devices, "device") + ", " +
                counted(each.episodes, "episode") + ", " + count(each.open) + " not cured" +
                (each.last.empty() ? "" : "; last " + text::printable(each.last.substr(0, 10))) +
                "\n";
        size_t width = 0;
        const size_t rates = std::min(kMostSoftwares, each.rates.size());
        for (size_t rate = 0; rate < rates; ++rate) {
            width = std::max(width, widthOf(name(each.rates[rate].software, "unknown")));
        }
        for (size_t rate = 0; rate < rates; ++rate) {
            text += rateLine(name(each.rates[rate].software, "unknown"),
                             std::min<size_t>(width, 16), each.rates[rate].share);
        }
        if (each.rates.size() > rates) {
            text += "    … " +
                    counted(static_cast<int64_t>(each.rates.size() - rates), "older name") +
                    " left out\n";
        }
    }
    if (out > 0) text += "  … " + counted(out, "rarer signature") + " left out\n";
    return text;
}

std::string changes(const Tables& tables) {
    std::string text = "\nWHAT IS NEW\n" + folded(comparisonWords(tables), "  ", "  ");
    const Changes& all = tables.changes;
    const size_t shown = std::min(kMostChanges, all.found.size());
    for (size_t i = 0; i < shown; ++i) {
        const Change& change = all.found[i];
        text += folded(change.signature, change.more ? "  + " : "  - ", "    ");
        const auto lines = [&](const Difference& difference, const std::string& where) {
            text += "    " + where + ", " + (difference.fisher.more ? "more" : "less") +
                    " often: p " + levelText(difference.fisher.p) + ", corrected " +
                    levelText(difference.level) + "\n";
            text += rateLine("now", 6, difference.one) + rateLine("before", 6, difference.other);
        };
        lines(change.everywhere, "everywhere");
        const size_t countries = std::min<size_t>(3, change.countries.size());
        for (size_t place = 0; place < countries; ++place) {
            lines(change.countries[place],
                  "in " + name(change.countries[place].country, "unknown"));
        }
    }
    if (all.found.size() > shown) {
        text += "  … " + count(static_cast<int64_t>(all.found.size() - shown)) + " more left out\n";
    }
    return text;
}

std::string cures(const Tables& tables) {
    std::string text = "\nCURED BY                episodes   median time\n";
    if (tables.cures.empty()) text += "  none\n";
    for (const Cure& cure : tables.cures) {
        std::string by = name(cure.by, "unknown");
        if (by == "open") by = "not cured";
        text += "  " + padded(by, 18) + padded(count(cure.episodes), 12, true) + "   " +
                (cure.median ? duration(*cure.median) : "-") + "\n";
    }
    return text;
}

std::string places(const Tables& tables) {
    std::string text = "\nCOUNTRIES AND MODELS THAT STAND OUT\n";
    size_t shown = 0;
    const auto add = [&](const char* column, const std::vector<Difference>& list) {
        for (const Difference& place : list) {
            if (place.name.empty() || place.level > tables.choice.level) continue;
            if (++shown > kMostPlaces) continue;
            text += "  " + std::string(column) + " " + name(place.name, "unknown") + ": failed " +
                    (place.fisher.more ? "more" : "less") + " often, corrected p " +
                    levelText(place.level) + "\n";
            text += rateLine("here", 9, place.one) + rateLine("elsewhere", 9, place.other);
        }
    };
    add("country", tables.places.countries);
    add("model", tables.places.models);
    if (shown > kMostPlaces) {
        text += "  … " + count(static_cast<int64_t>(shown - kMostPlaces)) + " more left out\n";
    }
    if (shown == 0)
        text += "  none, of " + counted(static_cast<int64_t>(tables.places.tests), "test") +
                " that count\n";
    return text;
}

std::string looks(const Tables& tables) {
    std::string text = "\nDEVICES TO LOOK AT FIRST\n";
    if (tables.looks.empty()) text += "  none\n";
    std::string before;
    for (const Look& look : tables.looks) {
        if (look.signature != before) text += folded(look.signature, "  ", "    ");
        before = look.signature;
        text += "    " + name(look.device, "unknown") + "  " + name(look.software, "") + " " +
                name(look.country, "") + "  " + text::printable(look.begin) +
                (look.open ? "  not cured" : "") + (look.logs ? "  logs" : "") + "\n";
        text += "      " +
                (look.path.empty() ? "known by an upload alone" : reportCommand(look.path)) + "\n";
    }
    return text;
}

}  // namespace

std::string percent(double share) {
    char text[32];
    snprintf(text, sizeof(text), "%.2f %%", share * 100);
    return text;
}

std::string fraction(const Share& share) {
    return count(share.some) + " of " + count(share.all);
}

std::string reportCommand(const std::string& path) {
    constexpr const char* kPlain =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:@%+,=";
    const std::string shown = text::printable(path);
    if (shown.find_first_not_of(kPlain) == std::string::npos && shown.rfind('-', 0) != 0) {
        return "bootvigil-report " + shown;
    }
    std::string quoted = shown.rfind('-', 0) == 0 ? "./" : "";
    for (const char c : shown) quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return "bootvigil-report '" + quoted + "'";
}

std::string comparisonWords(const Tables& tables) {
    const Changes& changes = tables.changes;
    if (changes.software.empty()) return "no device tells its software, so nothing is compared";
    if (changes.before.empty()) {
        return "no device has older software than " + name(changes.software, "") +
               ", so nothing is compared";
    }
    std::string words = name(changes.software, "") + " (" +
                        counted(changes.devices.some, "device") + ") against " +
                        name(changes.before.front(), "");
    if (changes.before.size() > 1) {
        words += " and " + counted(static_cast<int64_t>(changes.before.size() - 1), "older name");
    }
    words += " (" + counted(changes.devices.all - changes.devices.some, "device") +
             "): Fisher's exact test, level " + levelText(tables.choice.level) +
             " after Holm's correction for " + counted(static_cast<int64_t>(changes.tests), "test");
    return words + (changes.found.empty() ? ": no signature differs by more than chance" : "");
}

std::string toText(const Tables& tables) {
    return overview(tables) + signatures(tables) + changes(tables) + cures(tables) +
           places(tables) + looks(tables);
}

}  // namespace fleet
