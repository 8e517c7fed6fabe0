// SPDX-License-Identifier: Apache-2.0
// Makes a simulated fleet: a folder for each device, with what a pull of its partition gives.

#include "lab/fleet/Fleet.h"

#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

#include "common/text/Printable.h"
#include "lab/base/DevicePaths.h"
#include "lab/base/Files.h"
#include "lab/base/Jobs.h"
#include "lab/base/Progress.h"
#include "lab/base/Shared.h"
#include "lab/base/Text.h"
#include "lab/fleet/Life.h"
#include "lab/fleet/Market.h"
#include "lab/run/Workshop.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kBatch = 20000;       // devices of one cage, whose files are in memory
constexpr int64_t kDamaged = 2;          // percent of the partitions with anything to damage
const std::string kHealthy = "healthy";  // below the cage's folder: what a good boot leaves
const std::string kPulled = "pulled/";   // the others, by serial
constexpr uint64_t kPrinted = 20;        // broken rules

std::string isoTime(time_t time) {
    char text[32] = {};
    tm date = {};
    strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&time, &date));
    return text;
}

// As storage that ages does: a file ends too early, or some of its bytes are others.
void damage(const std::string& partition, QuickDraw draw) {
    if (!draw.percent(kDamaged)) return;
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(partition)) {
        if (entry.is_regular_file() && entry.file_size() > 0) files.push_back(entry.path());
    }
    if (files.empty()) return;
    std::sort(files.begin(), files.end());
    const std::string& path = draw.of(files);
    std::string content = readFile(path);
    const auto at = static_cast<size_t>(draw.below(static_cast<int64_t>(content.size())));
    if (draw.percent(50)) {
        content.resize(at);
    } else {
        for (size_t i = at; i < std::min(at + 16, content.size()); ++i) {
            content[i] = static_cast<char>(draw.below(256));
        }
    }
    writeFile(path, content);
}

class Maker {
public:
    explicit Maker(const FleetOrder& order)
        : mOrder(order),
          mDevices(static_cast<uint64_t>(order.devices)),
          mLives(order.seed, mDevices, order.regressions),
          mProgress("devices", mDevices),
          mAffected(order.regressions.size()) {}

    int run() {
        const auto started = std::chrono::steady_clock::now();
        for (uint64_t first = 0; first < mDevices; first += kBatch) {
            const int status = makeBatch(first, std::min(first + kBatch, mDevices));
            if (status != 0) return status;
        }
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
        printSums(seconds.count());
        return mTally->broken == 0 ? 0 : kFleetBroken;
    }

private:
    struct Tally {
        std::atomic<uint64_t> boots{0}, broken{0};
    };

    int makeBatch(uint64_t first, uint64_t end) {
        std::vector<Life> lives;
        for (uint64_t number = first; number < end; ++number) {
            lives.push_back(mLives.life(number));
        }
        Cage cage(mOrder.cage, mOrder.jobs);
        const int status = cage.run(
                [&](const std::string& folder) { return runTroubles(folder, first, lives); });
        mProgress.clear();
        if (status != 0) return status;
        return orLabFailed([&] {
            for (uint64_t number = first; number < end; ++number) {
                write(cage, lives[number - first]);
            }
            return 0;
        });
    }

    // In the cage.
    int runTroubles(const std::string& folder, uint64_t first, const std::vector<Life>& lives) {
        makeFolders(folder + "/" + kPulled);
        Scenario healthy;
        healthy.about = "a healthy device";
        healthy.files[kMarker] = "";
        Boot boot;
        for (const char* name : kCompleted) {
            boot.changes.push_back({20000, Change::Kind::SET, name, "1"});
        }
        boot.changes.push_back({600000, Change::Kind::END, "", ""});
        healthy.boots = {boot};
        Workshop workshop(folder);
        runAndKeep(workshop, healthy, folder + "/" + kHealthy);

        Jobs pool(lives.size(), mOrder.jobs,
                  [&](uint64_t index) { return lives[index].identity.serial; });
        const Jobs::Outcome outcome = pool.run([&] {
            Workshop workshop(folder);
            pool.forEachTask([&](uint64_t index) {
                const Life& life = lives[index];
                uint64_t boots = 0;
                if (!life.troubles.empty()) {
                    const std::string to = folder + "/" + kPulled + life.identity.serial;
                    boots = runAndKeep(workshop, mLives.scenario(first + index, life), to);
                    damage(to, mLives.damage(first + index));
                }
                mProgress.add(boots);
            });
        });
        return outcome.allRun() ? 0 : kFleetBroken;
    }

    // Gives the number of boots.
    uint64_t runAndKeep(Workshop& workshop, const Scenario& scenario, const std::string& to) {
        const ScenarioRun& run = workshop.run(scenario, Keep::TRACE);
        const auto& outcomes = run.outcomes();
        for (size_t i = 0; i < outcomes.size(); ++i) {
            for (const Violation& violation : outcomes[i].violations) {
                mProgress.object();
                if (mTally->broken++ >= kPrinted) continue;
                mProgress.clear();
                fprintf(stderr, "%s, boot %zu: %s\n", scenario.about.c_str(), i + 1,
                        text::printable(violation.text).c_str());
            }
        }
        mTally->boots += outcomes.size();
        fs::rename(run.root().at(kPartition), to);
        return outcomes.size();
    }

    void write(const Cage& cage, const Life& life) {
        const Identity& device = life.identity;
        const std::string folder = mOrder.out + "/" + device.serial;
        writeFile(folder + "/device.json", nlohmann::json({{"serial", device.serial},
                                                           {"model", device.model},
                                                           {"software", device.software},
                                                           {"country", device.country},
                                                           {"pulled", isoTime(device.pulled)}})
                                                           .dump() +
                                                   "\n");
        cage.copyOut(life.troubles.empty() ? kHealthy : kPulled + device.serial,
                     folder + kPartition);
        mGoodBoots += life.goodBoots;
        mFailed += life.troubles.empty() ? 0 : 1;
        for (const size_t regression : life.regressions) ++mAffected[regression];
    }

    void printSums(double seconds) const {
        const auto run = static_cast<double>(mTally->boots);
        printf("%s: %s devices, %s of them with a failure; %s boots from %.10s to %.10s\n",
               text::printable(mOrder.out).c_str(), text::grouped(mDevices).c_str(),
               text::grouped(mFailed).c_str(), text::grouped(mGoodBoots + mTally->boots).c_str(),
               isoTime(kSeenFrom).c_str(), isoTime(kSeenUntil).c_str());
        for (size_t i = 0; i < mAffected.size(); ++i) {
            const std::string& about = mOrder.regressions[i].about;
            printf("regression %zu on %s devices%s%s\n", i + 1, text::grouped(mAffected[i]).c_str(),
                   about.empty() ? "" : ": ", text::printable(about).c_str());
        }
        printf("made in %.1f s: %.0f devices a second; %.0f boots were run, %.0f a second\n",
               seconds, static_cast<double>(mDevices) / seconds, run, run / seconds);
    }

    const FleetOrder& mOrder;
    const uint64_t mDevices;
    const Lives mLives;
    Progress mProgress;
    Shared<Tally> mTally;
    uint64_t mGoodBoots = 0, mFailed = 0;
    std::vector<uint64_t> mAffected;  // devices, by regression
};

}  // namespace

int makeFleet(const FleetOrder& order) {
    return Maker(order).run();
}

}  // namespace lab
