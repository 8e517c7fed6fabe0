// SPDX-License-Identifier: Apache-2.0
// The tables of a fleet as one self-contained HTML page, without a script.

#include "fleet/show/Page.h"

#include <stdio.h>

#include <algorithm>

#include "common/text/Printable.h"
#include "common/version/Version.h"
#include "fleet/show/Text.h"

// Made by the build of fleet/page, with a NUL at its end.
extern "C" const char kFleetCss[];

namespace fleet {

namespace {

constexpr size_t kMostSignatures = 50;
constexpr size_t kMostSoftwares = 12;
constexpr size_t kMostChanges = 50;
constexpr size_t kMostCountries = 5;  // of one change
constexpr size_t kMostPlaces = 15;
constexpr size_t kOpenSignatures = 10;  // the others are folded
constexpr int64_t kLeastForScale = 20;  // of so many devices one; the interval of fewer says little

// Text from outside between tags and in attributes.
std::string safe(const std::string& text) {
    std::string out;
    for (const char c : text::printable(text)) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string name(const std::string& text) {
    return text.empty() ? "unknown" : safe(text);
}

std::string element(const char* tag, const std::string& attributes, const std::string& content) {
    return std::string("<") + tag + (attributes.empty() ? "" : " " + attributes) + ">" + content +
           "</" + tag + ">";
}

std::string section(const char* id, const char* title, const std::string& content) {
    const std::string heading = std::string(id) + "-title";
    return element("section", "id=\"" + std::string(id) + "\" aria-labelledby=\"" + heading + "\"",
                   "\n" + element("h2", "id=\"" + heading + "\"", title) + "\n" + content) +
           "\n";
}

std::string leftOut(size_t all, size_t shown, const char* what) {
    if (all <= shown) return "";
    return element("p", "class=\"hint\"",
                   "… " + text::grouped(all - shown) + " " + what + " left out") +
           "\n";
}

std::string width(double share) {
    char text[16];
    snprintf(text, sizeof(text), "%.2f%%", std::clamp(share, 0.0, 1.0) * 100);
    return text;
}

// The filled part of a bar.
std::string fill(double share, const std::string& kind = "") {
    return "<span class=\"fill" + kind + "\" style=\"width:" + width(share) + "\"></span>";
}

// A line of a list of bars: what is said of it stands beside, so that the bar itself says nothing
// to who cannot see it.
std::string barLine(const std::string& label, const std::string& bar, const std::string& figure) {
    return "<li><span class=\"name\">" + label +
           "</span><span class=\"bar\" aria-hidden=\"true\">" + bar +
           "</span><span class=\"figure\">" + figure + "</span></li>\n";
}

// A rate with its interval, on a scale that ends at `most`.
std::string rateLine(const std::string& label, const Share& share, double most,
                     const std::string& kind = "") {
    if (share.all == 0) return barLine(label, "", "no devices");
    const Interval interval = wilson(share);
    const double rate = static_cast<double>(share.some) / static_cast<double>(share.all);
    const double low = std::min(1.0, interval.low / most);
    const double high = std::min(1.0, interval.high / most);
    const std::string line = "<span class=\"interval\" style=\"left:" + width(low) +
                             ";width:" + width(high - low) + "\"></span>";
    return barLine(label, fill(rate / most, kind) + line,
                   element("strong", "", percent(rate)) + ", " + fraction(share) + " (" +
                           percent(interval.low) + " to " + percent(interval.high) + ")");
}

// Where a scale ends: what few devices leave open would make the rest too small to see.
double scaleOf(const std::vector<Share>& shares) {
    int64_t largest = 0;
    for (const Share& share : shares) largest = std::max(largest, share.all);
    double most = 1e-9;
    for (const Share& share : shares) {
        const bool counts = share.all > 0 && share.all >= largest / kLeastForScale;
        if (counts) most = std::max(most, wilson(share).high);
    }
    return most;
}

std::string bars(const std::string& lines) {
    return element("ul", "class=\"bars\"", "\n" + lines) + "\n";
}

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof(text), "%.2g", value);
    return text;
}

std::string first(const Tables& tables) {
    const Changes& changes = tables.changes;
    const bool isNew = !changes.found.empty() && changes.found[0].more;
    std::string words =
            element("p", "",
                    element("strong", "", isNew ? "New: " : "Nothing new: ") +
                            safe(isNew ? changes.found[0].signature : comparisonWords(tables)));
    if (isNew) {
        const Change& change = changes.found[0];
        const Difference& surest =
                change.countries.empty() ? change.everywhere : change.countries[0];
        words += element("p", "",
                         fraction(surest.one) + " devices" +
                                 (surest.country.empty() ? "" : " in " + safe(surest.country)) +
                                 " with " + safe(changes.software) + ", " + fraction(surest.other) +
                                 " before; " +
                                 "<a href=\"#new\">how sure</a>, "
                                 "<a href=\"#look\">devices to look at</a>");
    }
    return element("div", isNew ? "class=\"first new\"" : "class=\"first\"", words) + "\n";
}

std::string devices(const Tables& tables) {
    const auto all = static_cast<double>(std::max<int64_t>(1, tables.devices));
    std::string lines;
    const auto add = [&](const std::string& label, int64_t count, const char* kind) {
        const double share = static_cast<double>(count) / all;
        lines += barLine(label, fill(share, kind),
                         element("strong", "", text::grouped(static_cast<size_t>(count))) + ", " +
                                 percent(share));
    };
    for (const StateCount& state : tables.states) {
        const bool bad = state.state == "failing" || state.state == "blocked";
        const bool good = state.state == "no-failure" || state.state == "cured";
        add(name(state.state), state.devices, bad ? " bad" : good ? " good" : " warn");
    }
    add("died in a capture", tables.died, " bad");
    return bars(lines);
}

std::string counted(int64_t count, const char* what) {
    return text::grouped(static_cast<size_t>(std::max<int64_t>(0, count))) + " " + what +
           (count == 1 ? "" : "s");
}

std::string signature(const SignatureCount& count) {
    const size_t rates = std::min(kMostSoftwares, count.rates.size());
    std::vector<Share> shares;
    for (size_t i = 0; i < rates; ++i) shares.push_back(count.rates[i].share);
    const double most = scaleOf(shares);
    std::string lines;
    for (size_t i = 0; i < rates; ++i) {
        lines += rateLine(name(count.rates[i].software), shares[i], most);
    }
    std::string about =
            counted(count.devices, "device") + ", " + counted(count.episodes, "episode") + ", " +
            text::grouped(static_cast<size_t>(std::max<int64_t>(0, count.open))) + " not cured";
    if (!count.last.empty()) about += "; last on " + safe(count.last.substr(0, 10));
    return element("div", "class=\"signature\"",
                   element("h3", "", safe(count.signature)) +
                           element("p", "class=\"hint\"", about) + bars(lines) +
                           leftOut(count.rates.size(), rates, "older names of software")) +
           "\n";
}

std::string signatures(const Tables& tables) {
    const size_t shown = std::min(kMostSignatures, tables.signatures.size());
    std::string open;
    std::string folded;
    for (size_t i = 0; i < shown; ++i) {
        (i < kOpenSignatures ? open : folded) += signature(tables.signatures[i]);
    }
    if (shown == 0) open = "<p>No device had a failure.</p>\n";
    folded += leftOut(static_cast<size_t>(std::max<int64_t>(0, tables.signatureCount)), shown,
                      "rarer signatures");
    if (shown <= kOpenSignatures) return open + folded;
    return open +
           element("details", "",
                   element("summary", "",
                           text::grouped(shown - kOpenSignatures) + " more signatures") +
                           "\n" + folded) +
           "\n";
}

std::string pairOf(const Difference& difference, const std::string& where, const char* one,
                   const char* other) {
    const double most = scaleOf({difference.one, difference.other});
    const bool more = difference.fisher.more;
    return element("p", "class=\"hint\"",
                   where + ": " +
                           element("span", more ? "class=\"more\"" : "class=\"less\"",
                                   more ? "more often" : "less often") +
                           ", p " + number(difference.fisher.p) + ", corrected " +
                           number(difference.level)) +
           bars(rateLine(one, difference.one, most, more ? " bad" : "") +
                rateLine(other, difference.other, most));
}

std::string changes(const Tables& tables) {
    const Changes& all = tables.changes;
    std::string html = element("p", "", safe(comparisonWords(tables)) + ".") + "\n";
    const size_t shown = std::min(kMostChanges, all.found.size());
    for (size_t i = 0; i < shown; ++i) {
        const Change& change = all.found[i];
        std::string pairs = pairOf(change.everywhere, "Everywhere", "now", "before");
        for (size_t place = 0; place < std::min(kMostCountries, change.countries.size()); ++place) {
            const Difference& here = change.countries[place];
            pairs += pairOf(here, "In " + name(here.country), "now", "before");
        }
        html += element("div", "class=\"signature\"",
                        element("h3", "", safe(change.signature)) + pairs) +
                "\n";
    }
    return html + leftOut(all.found.size(), shown, "more");
}

std::string cures(const Tables& tables) {
    int64_t all = 1;
    for (const Cure& cure : tables.cures) all = std::max(all, cure.episodes);
    std::string lines;
    for (const Cure& cure : tables.cures) {
        const bool isOpen = cure.by == "open";
        const bool isCured = !isOpen && cure.by != "unclear";
        std::string figure =
                element("strong", "", text::grouped(static_cast<size_t>(cure.episodes)));
        if (cure.median) figure += ", median " + durationWords(*cure.median);
        const double share = static_cast<double>(cure.episodes) / static_cast<double>(all);
        lines += barLine(isOpen ? "not cured" : name(cure.by),
                         fill(share, isOpen    ? " bad"
                                     : isCured ? " good"
                                               : " warn"),
                         figure);
    }
    return lines.empty() ? "<p>No failure.</p>\n" : bars(lines);
}

std::string placeList(const char* title, const std::vector<Difference>& places, double level) {
    std::string html = element("h3", "", title);
    std::vector<Share> shares;
    const size_t shown = std::min(kMostPlaces, places.size());
    for (size_t i = 0; i < shown; ++i) shares.push_back(places[i].one);
    std::string lines;
    for (size_t i = 0; i < shown; ++i) {
        const Difference& place = places[i];
        const bool out = place.level <= level;
        std::string label = name(place.name);
        if (out) {
            label += place.fisher.more ? " <span class=\"more\">more</span>"
                                       : " <span class=\"less\">less</span>";
        }
        lines +=
                rateLine(label, place.one, scaleOf(shares), out && place.fisher.more ? " bad" : "");
    }
    return html + "\n" + bars(lines) + leftOut(places.size(), shown, "smaller ones");
}

std::string places(const Tables& tables) {
    return element("p", "",
                   "Devices with a failure. What is marked differs from all others together by "
                   "more than chance, at level " +
                           number(tables.choice.level) + " after correction for " +
                           text::grouped(tables.places.tests) + " tests.") +
           "\n" + placeList("Countries", tables.places.countries, tables.choice.level) +
           placeList("Models", tables.places.models, tables.choice.level);
}

std::string looks(const Tables& tables) {
    if (tables.looks.empty()) return "<p>None.</p>\n";
    std::string rows;
    for (const Look& look : tables.looks) {
        std::string about =
                name(look.software) + ", " + name(look.country) + ", " + name(look.model);
        const std::string what = std::string(look.open ? "not cured" : "cured or unclear") +
                                 (look.logs ? ", with logs" : "");
        rows += "<tr><th scope=\"row\">" + name(look.device) + "</th><td>" + safe(look.signature) +
                "</td><td>" + about + "</td><td>" + safe(look.begin) + ", " + what + "</td><td>" +
                (look.path.empty() ? "known by an upload alone"
                                   : element("code", "", safe(reportCommand(look.path)))) +
                "</td></tr>\n";
    }
    return "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"Devices to look at\">"
           "<table class=\"looks\"><thead><tr><th scope=\"col\">Device</th><th scope=\"col\">"
           "Signature</th><th scope=\"col\">What it is</th><th scope=\"col\">Failure</th>"
           "<th scope=\"col\">Its report</th></tr></thead><tbody>\n" +
           rows + "</tbody></table></div>\n";
}

std::string chosen(const Choice& choice) {
    std::string words;
    const auto add = [&](const char* what, const std::string& value) {
        if (!value.empty()) words += std::string(words.empty() ? "Only " : ", ") + what + value;
    };
    add("since ", choice.since);
    add("country ", choice.country);
    add("", choice.signature);
    return words.empty() ? "" : element("p", "class=\"hint\"", safe(words)) + "\n";
}

}  // namespace

std::string toPage(const Tables& tables) {
    const std::string title = text::grouped(static_cast<size_t>(tables.devices)) + " devices, " +
                              text::grouped(static_cast<size_t>(tables.failed)) + " with a failure";
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           // The page needs nothing from anywhere, so it is allowed nothing from anywhere.
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
           "style-src 'unsafe-inline'; img-src data:\">\n<link rel=\"icon\" href=\"data:,\">\n"
           "<title>Bootvigil fleet: " +
           title + "</title>\n<style>\n" + kFleetCss + "</style>\n</head>\n<body>\n<header>\n<h1>" +
           title +
           "</h1>\n<nav aria-label=\"Sections\"><a href=\"#new\">What is new</a> "
           "<a href=\"#devices\">Devices</a> <a href=\"#signatures\">Signatures</a> "
           "<a href=\"#cures\">Cures</a> <a href=\"#places\">Countries and models</a> "
           "<a href=\"#look\">Devices to look at</a></nav>\n</header>\n<main>\n" +
           chosen(tables.choice) + first(tables) + section("devices", "Devices", devices(tables)) +
           section("new", "What is new", changes(tables)) +
           section("signatures", "Signatures", signatures(tables)) +
           section("cures", "Cured by", cures(tables)) +
           section("places", "Countries and models", places(tables)) +
           section("look", "Devices to look at first", looks(tables)) +
           "</main>\n<footer><p>A bar is a rate of devices, the line on it its 95 % interval. This "
           "page holds all of its data and loads nothing. bootvigil-fleet " +
           safe(kVersion) + "</p></footer>\n</body>\n</html>\n";
}

}  // namespace fleet
