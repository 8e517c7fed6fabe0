// SPDX-License-Identifier: Apache-2.0
// What a search came to, and how its parts add up.

#include "lab/random/SagaResult.h"

#include <stdio.h>

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/base/Files.h"
#include "lab/base/Text.h"

namespace lab {

namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kLargest = 64UL << 10;        // bytes of a file
constexpr uint64_t kMost = uint64_t{1} << 50;  // of anything that is counted
constexpr size_t kKept = 20;                   // findings
constexpr size_t kLongest = 1000;              // bytes of what is said of one
constexpr char kSchema[] = "bootvigil-sagas/1";

// Every number of a result, by its name in the file.
const std::vector<std::pair<const char*, uint64_t SagaResult::*>> kNumbers = {
        {"count", &SagaResult::count},
        {"part", &SagaResult::part},
        {"parts", &SagaResult::parts},
        {"boots_run", &SagaResult::bootsRun},
        {"device_seconds", &SagaResult::deviceSeconds},
        {"twice", &SagaResult::twice},
        {"not_run", &SagaResult::notRun},
        {"failed_jobs", &SagaResult::failedJobs},
};

uint64_t numberAt(const Json& object, const char* name, uint64_t most = kMost) {
    const Json& value = object.at(name);
    if (!value.is_number_unsigned() || value.get<uint64_t>() > most) {
        throw std::runtime_error(std::string(name) + " is no number that it can be");
    }
    return value.get<uint64_t>();
}

Json jsonOf(const SagaFinding& finding) {
    return {{"status", finding.status},
            {"seed", finding.seed},
            {"boot", finding.boot},
            {"text", finding.text}};
}

SagaFinding findingFrom(const Json& object) {
    SagaFinding finding;
    finding.status = static_cast<int>(numberAt(object, "status", kSagaNotRepeated));
    if (finding.status < kSagaCrash) throw std::runtime_error("status is none of a finding");
    finding.seed = numberAt(object, "seed", UINT64_MAX);
    finding.boot = numberAt(object, "boot");
    finding.text = object.at("text").get<std::string>();
    return finding;
}

void requireConsistent(const SagaResult& result) {
    if (result.part < 1 || result.part > result.parts || result.parts > result.count) {
        throw std::runtime_error("there is no such shard");
    }
    const bool any = result.status() >= kSagaCrash;
    if (any != !result.findings.empty() ||
        (any && result.findings.front().status != result.status())) {
        throw std::runtime_error("its findings are not those that it counts");
    }
}

SagaResult resultFrom(const Json& object) {
    if (object.at("schema") != kSchema) throw std::runtime_error("another schema");
    SagaResult result;
    result.version = object.at("version").get<std::string>();
    result.boots = object.at("boots").get<std::string>();
    result.platform = object.at("platform").get<std::string>();
    result.seed = numberAt(object, "seed", UINT64_MAX);
    for (const auto& [name, number] : kNumbers) result.*number = numberAt(object, name);
    result.fingerprint = numberAt(object, "fingerprint", UINT64_MAX);
    result.seconds = object.at("seconds").get<double>();
    for (size_t i = 0; i < kSagaKinds.size(); ++i) {
        result.broken[i] = numberAt(object.at("broken"), kSagaKinds[i]);
    }
    for (const Json& finding : object.at("findings")) {
        result.findings.push_back(findingFrom(finding));
    }
    requireConsistent(result);
    return result;
}

auto searchOf(const SagaResult& result) {
    return std::tie(result.version, result.seed, result.count, result.boots, result.platform,
                    result.parts);
}

void sortFindings(SagaResult& result) {
    std::sort(result.findings.begin(), result.findings.end(), [](const auto& a, const auto& b) {
        return std::tie(a.status, a.seed) < std::tie(b.status, b.seed);
    });
    if (result.findings.size() > kKept) result.findings.resize(kKept);
}

void addPart(SagaResult& sum, const SagaResult& part) {
    sum.bootsRun += part.bootsRun;
    sum.deviceSeconds += part.deviceSeconds;
    sum.seconds += part.seconds;
    sum.twice += part.twice;
    sum.fingerprint += part.fingerprint;
    sum.notRun += part.notRun;
    sum.failedJobs += part.failedJobs;
    for (size_t i = 0; i < sum.broken.size(); ++i) sum.broken[i] += part.broken[i];
    sum.findings.insert(sum.findings.end(), part.findings.begin(), part.findings.end());
    sortFindings(sum);
}

uint64_t& countOf(SagaResult& result, int status) {
    return result.broken[static_cast<size_t>(status - kSagaCrash)];
}

}  // namespace

uint64_t SagaResult::first() const {
    return count / parts * (part - 1) + std::min(part - 1, count % parts);
}

uint64_t SagaResult::last() const {
    return first() + count / parts + (part <= count % parts ? 1 : 0);
}

void SagaResult::add(SagaFinding finding) {
    ++countOf(*this, finding.status);
    finding.text.resize(std::min(finding.text.size(), kLongest));
    findings.push_back(std::move(finding));
    sortFindings(*this);
}

void SagaResult::worstDoesNotRepeat() {
    SagaFinding& worst = findings.front();
    --countOf(*this, worst.status);
    worst.status = kSagaNotRepeated;
    ++countOf(*this, worst.status);
    sortFindings(*this);
}

int SagaResult::status() const {
    for (size_t i = 0; i < broken.size(); ++i) {
        if (broken[i] > 0) return kSagaCrash + static_cast<int>(i);
    }
    return notRun > 0 || failedJobs > 0 ? kSagaNotRun : 0;
}

std::vector<std::string> SagaResult::describe() const {
    std::vector<std::string> lines;
    const auto rate = [&](uint64_t sum) { return static_cast<double>(sum) / seconds; };
    lines.push_back(format("%ju boots in %.1f s: %.0f a second, %.0f times as fast as real time",
                           bootsRun, seconds, rate(bootsRun), rate(deviceSeconds)));
    if (twice > 0) {
        lines.push_back(
                format("%ju scenarios run twice; their fingerprint: %016jx", twice, fingerprint));
    }
    if (notRun > 0) lines.push_back(std::to_string(notRun) + " scenarios could not be run");
    if (failedJobs > 0) lines.push_back(std::to_string(failedJobs) + " jobs failed");
    std::string kinds;
    uint64_t all = 0;
    for (size_t i = 0; i < broken.size(); ++i) {
        if (broken[i] == 0) continue;
        all += broken[i];
        kinds += format("%s%ju %s", kinds.empty() ? "" : ", ", broken[i], kSagaKinds[i]);
    }
    if (all > 0) {
        lines.push_back(format("%ju scenarios broke a rule: ", all) + kinds);
    } else {
        lines.emplace_back(status() == 0 ? "every rule held"
                                         : "every rule held in those that were run");
    }
    return lines;
}

std::string lineOf(const SagaFinding& finding) {
    return jsonOf(finding).dump(-1, ' ', true, Json::error_handler_t::replace);
}

SagaFinding readFinding(const std::string& line) {
    return findingFrom(Json::parse(line));
}

void writeResult(const SagaResult& result, const std::string& path) {
    Json object = {{"schema", kSchema},
                   {"version", result.version},
                   {"seed", result.seed},
                   {"boots", result.boots},
                   {"platform", result.platform}};
    for (const auto& [name, number] : kNumbers) object[name] = result.*number;
    object["fingerprint"] = result.fingerprint;
    object["seconds"] = result.seconds;
    for (size_t i = 0; i < kSagaKinds.size(); ++i) {
        object["broken"][kSagaKinds[i]] = result.broken[i];
    }
    object["findings"] = Json::array();
    for (const SagaFinding& finding : result.findings) {
        object["findings"].push_back(jsonOf(finding));
    }
    const std::string whole = path + ".part";
    writeFile(whole, object.dump(1, ' ', true, Json::error_handler_t::replace) + "\n");
    if (rename(whole.c_str(), path.c_str()) != 0) failWithErrno("cannot write", path);
}

SagaResult readResult(const std::string& path) {
    const std::string text = readFile(path, kLargest);
    try {
        // Deeper than any result.
        const auto flat = [](int depth, Json::parse_event_t, Json&) {
            if (depth > 3) throw std::runtime_error("it is too deep");
            return true;
        };
        return resultFrom(Json::parse(text, flat));
    } catch (const Json::parse_error&) {
        throw std::runtime_error(path + ": no result of a search: it is not JSON");
    } catch (const std::exception& error) {
        throw std::runtime_error(path + ": no result of a search: " + error.what());
    }
}

SagaResult mergeResults(const std::vector<std::string>& paths) {
    std::optional<SagaResult> sum;
    std::set<uint64_t> parts;
    for (const std::string& path : paths) {
        SagaResult part = readResult(path);
        if (sum && searchOf(part) != searchOf(*sum)) {
            throw std::runtime_error(path + ": of another search than " + paths.front());
        }
        if (!parts.insert(part.part).second) {
            throw std::runtime_error(
                    format("%s: shard %ju is there twice", path.c_str(), part.part));
        }
        if (sum) {
            addPart(*sum, part);
        } else {
            sum = std::move(part);
        }
    }
    if (!sum) throw std::runtime_error("there is nothing to merge");
    for (uint64_t part = 1; part <= sum->parts; ++part) {
        if (parts.count(part) > 0) continue;
        throw std::runtime_error(format("shard %ju of %ju is missing", part, sum->parts));
    }
    sum->part = sum->parts = 1;
    return *sum;
}

}  // namespace lab
