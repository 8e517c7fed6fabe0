// SPDX-License-Identifier: Apache-2.0
// The tables of a fleet for other programs.

#include "fleet/show/Json.h"

#include <nlohmann/json.hpp>

#include "common/text/Printable.h"
#include "common/version/Version.h"

namespace fleet {

using Json = nlohmann::ordered_json;

const char* const kCsvTables[4] = {"signatures", "changes", "cures", "places"};

namespace {

constexpr const char* kSchema = "bootvigil-fleet/1";

Json orNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json shareOf(const Share& share) {
    const Interval interval = wilson(share);
    const Json rate =
            share.all == 0 ? Json()
                           : Json(static_cast<double>(share.some) / static_cast<double>(share.all));
    return {{"affected", share.some},
            {"devices", share.all},
            {"rate", rate},
            {"low", interval.low},
            {"high", interval.high}};
}

Json differenceOf(const Difference& difference, const char* one, const char* other) {
    return {{one, shareOf(difference.one)},
            {other, shareOf(difference.other)},
            {"more", difference.fisher.more},
            {"p", difference.fisher.p},
            {"level", difference.level}};
}

Json signatureOf(const SignatureCount& count) {
    Json rates = Json::array();
    for (const Rate& rate : count.rates) {
        Json one = {{"software", rate.software}};
        one.update(shareOf(rate.share));
        rates.push_back(std::move(one));
    }
    return {{"signature", count.signature}, {"kind", count.kind},
            {"devices", count.devices},     {"episodes", count.episodes},
            {"first", orNull(count.first)}, {"last", orNull(count.last)},
            {"open", count.open},           {"rates", std::move(rates)}};
}

Json changesOf(const Changes& changes) {
    Json found = Json::array();
    for (const Change& change : changes.found) {
        Json countries = Json::array();
        for (const Difference& difference : change.countries) {
            Json one = {{"country", difference.country}};
            one.update(differenceOf(difference, "now", "before"));
            countries.push_back(std::move(one));
        }
        Json one = {{"signature", change.signature},
                    {"more", change.more},
                    {"level", change.level}};
        one["everywhere"] = differenceOf(change.everywhere, "now", "before");
        one["countries"] = std::move(countries);
        found.push_back(std::move(one));
    }
    return {{"software", orNull(changes.software)},
            {"before", changes.before},
            {"tests", changes.tests},
            {"found", std::move(found)}};
}

Json placesOf(const std::vector<Difference>& places, double level) {
    Json list = Json::array();
    for (const Difference& place : places) {
        Json one = {{"name", place.name}, {"stands_out", place.level <= level}};
        one.update(differenceOf(place, "here", "elsewhere"));
        list.push_back(std::move(one));
    }
    return list;
}

Json lookOf(const Look& look) {
    return {{"device", look.device},   {"signature", look.signature}, {"software", look.software},
            {"country", look.country}, {"model", look.model},         {"begin", orNull(look.begin)},
            {"logs", look.logs},       {"open", look.open},           {"path", orNull(look.path)}};
}

// One line of values; what would end a field is quoted.
class Line {
public:
    Line& operator<<(const std::string& value) {
        if (!mText.empty() || mAny) mText += ',';
        mAny = true;
        if (value.find_first_of(",\"\r\n") == std::string::npos) {
            mText += value;
            return *this;
        }
        mText += '"';
        for (const char c : value) mText += c == '"' ? "\"\"" : std::string(1, c);
        mText += '"';
        return *this;
    }
    Line& operator<<(int64_t value) {
        return *this << std::to_string(value);
    }
    Line& operator<<(double value) {
        return *this << Json(value).dump();
    }
    Line& operator<<(const Share& share) {
        const Interval interval = wilson(share);
        return *this << share.some << share.all << interval.low << interval.high;
    }
    std::string text() const {
        return mText + "\n";
    }

private:
    std::string mText;
    bool mAny = false;
};

std::string signatureLines(const Tables& tables) {
    std::string lines =
            "signature,kind,all_devices,all_episodes,first,last,open,software,affected,devices,"
            "low,high\n";
    for (const SignatureCount& count : tables.signatures) {
        for (const Rate& rate : count.rates) {
            Line line;
            line << count.signature << count.kind << count.devices << count.episodes << count.first
                 << count.last << count.open << rate.software << rate.share;
            lines += line.text();
        }
    }
    return lines;
}

std::string changeLines(const Tables& tables) {
    std::string lines =
            "signature,change,software,country,affected,devices,low,high,before_affected,"
            "before_devices,before_low,before_high,p,level\n";
    for (const Change& change : tables.changes.found) {
        std::vector<Difference> all = {change.everywhere};
        all.insert(all.end(), change.countries.begin(), change.countries.end());
        for (const Difference& difference : all) {
            Line line;
            line << change.signature << std::string(difference.fisher.more ? "more" : "less")
                 << tables.changes.software << difference.country << difference.one
                 << difference.other << difference.fisher.p << difference.level;
            lines += line.text();
        }
    }
    return lines;
}

std::string cureLines(const Tables& tables) {
    std::string lines = "cured_by,episodes,median_seconds\n";
    for (const Cure& cure : tables.cures) {
        Line line;
        line << cure.by << cure.episodes;
        line << (cure.median ? std::to_string(*cure.median) : std::string());
        lines += line.text();
    }
    return lines;
}

std::string placeLines(const Tables& tables) {
    std::string lines =
            "column,name,failed,devices,low,high,other_failed,other_devices,other_low,other_high,p,"
            "level\n";
    const auto add = [&](const char* column, const std::vector<Difference>& places) {
        for (const Difference& place : places) {
            Line line;
            line << std::string(column) << place.name << place.one << place.other << place.fisher.p
                 << place.level;
            lines += line.text();
        }
    };
    add("country", tables.places.countries);
    add("model", tables.places.models);
    return lines;
}

}  // namespace

std::string toJson(const Tables& tables) {
    const Choice& choice = tables.choice;
    Json json = {{"schema", kSchema},
                 {"version", std::string(kVersion)},
                 {"since", orNull(choice.since)},
                 {"country", orNull(choice.country)},
                 {"signature", orNull(choice.signature)},
                 {"level", choice.level},
                 {"devices", tables.devices},
                 {"failed", tables.failed},
                 {"episodes", tables.episodes},
                 {"died_in_capture", tables.died}};
    json["states"] = Json::object();
    for (const StateCount& state : tables.states) json["states"][state.state] = state.devices;
    json["softwares"] = Json::array();
    for (const Software& software : tables.softwares) {
        json["softwares"].push_back({{"software", software.name}, {"devices", software.devices}});
    }
    json["signature_count"] = tables.signatureCount;
    json["signatures"] = Json::array();
    for (const SignatureCount& count : tables.signatures) {
        json["signatures"].push_back(signatureOf(count));
    }
    json["changes"] = changesOf(tables.changes);
    json["cures"] = Json::array();
    for (const Cure& cure : tables.cures) {
        json["cures"].push_back({{"by", cure.by},
                                 {"episodes", cure.episodes},
                                 {"median_seconds", cure.median ? Json(*cure.median) : Json()}});
    }
    json["countries"] = placesOf(tables.places.countries, choice.level);
    json["models"] = placesOf(tables.places.models, choice.level);
    json["look"] = Json::array();
    for (const Look& look : tables.looks) json["look"].push_back(lookOf(look));
    return json.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string toCsv(const Tables& tables, const std::string& table) {
    std::string lines;
    if (table == kCsvTables[0]) lines = signatureLines(tables);
    if (table == kCsvTables[1]) lines = changeLines(tables);
    if (table == kCsvTables[2]) lines = cureLines(tables);
    if (table == kCsvTables[3]) lines = placeLines(tables);
    return lines;
}

}  // namespace fleet
