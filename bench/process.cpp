// SPDX-License-Identifier: Apache-2.0
// What is measured within one process: captures beside libzstd alone, polls beside getline alone.
// BENCH_LOG names the log to compress, BENCH_FOLDER a folder to write in, BENCH_LINES the longest
// boot profile.

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <android/log.h>
#include <benchmark/benchmark.h>
#include <zstd.h>

#include "bootvigil/BootMilestones.h"
#include "bootvigil/Bootvigil.h"
#include "bootvigil/compress/CompressZstd.h"

namespace {

constexpr int kLevel = 5;

std::string setting(const char* name) {
    const char* value = getenv(name);
    if (value != nullptr) return value;
    fprintf(stderr, "bench-process: %s is not set\n", name);
    exit(2);
}

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void captureFile(benchmark::State& state, std::string log, std::string folder) {
    bootvigil::CompressZstd compressor;
    compressor.mOutputDir = folder.c_str();
    for (auto _ : state) {
        if (compressor.compressComFile(log.data(), std::string("process.zs").data(), kLevel) != 0) {
            state.SkipWithError("cannot read the log");
        }
    }
}

void captureCommand(benchmark::State& state, std::string log, std::string folder) {
    bootvigil::CompressZstd compressor;
    compressor.mOutputDir = folder.c_str();
    const std::string command = "cat " + log;
    for (auto _ : state) {
        std::string changeable = command;
        compressor.compressShellCmdFile(changeable.data(), std::string("process.zs").data(),
                                        kLevel);
    }
}

ZSTD_CCtx* makeContext() {
    ZSTD_CCtx* context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, kLevel);
    ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
    return context;
}

// One shot, from memory to memory.
void compressInMemory(benchmark::State& state, const std::string& text) {
    std::vector<char> output(ZSTD_compressBound(text.size()));
    for (auto _ : state) {
        ZSTD_CCtx* context = makeContext();
        const size_t size =
                ZSTD_compress2(context, output.data(), output.size(), text.data(), text.size());
        if (ZSTD_isError(size) != 0) state.SkipWithError(ZSTD_getErrorName(size));
        ZSTD_freeCCtx(context);
    }
}

// The same block by block, which is what any capture of constant memory has to do; what comes out
// is dropped.
void compressStreamed(benchmark::State& state, const std::string& text) {
    std::vector<char> output(ZSTD_CStreamOutSize());
    const size_t block = ZSTD_CStreamInSize();
    for (auto _ : state) {
        ZSTD_CCtx* context = makeContext();
        size_t remaining = 1;
        for (size_t at = 0; remaining != 0; at += block) {
            const bool last = text.size() - at < block;
            ZSTD_inBuffer in = {text.data() + at, last ? text.size() - at : block, 0};
            do {
                ZSTD_outBuffer out = {output.data(), output.size(), 0};
                remaining = ZSTD_compressStream2(context, &out, &in,
                                                 last ? ZSTD_e_end : ZSTD_e_continue);
                if (ZSTD_isError(remaining) != 0) state.SkipWithError("cannot compress");
            } while (last ? remaining != 0 : in.pos < in.size);
            if (!last) remaining = 1;
        }
        ZSTD_freeCCtx(context);
    }
}

// A real profile, enlarged: the event lines come again and again, but for the milestones, of which
// five would be a restart loop that ends the reading.
void writeProfile(const std::string& path, size_t count) {
    std::ifstream real(PROFILE);
    std::vector<std::string> lines;
    std::vector<std::string> events;
    std::string line;
    while (std::getline(real, line)) {
        lines.push_back(line);
        bool milestone = false;
        for (const std::string& name : kBootMilestones) {
            milestone = milestone || line.find(name) != std::string::npos;
        }
        if (!milestone && line.find(": ") != std::string::npos && line.find(" :") < line.rfind(':'))
            events.push_back(line);
    }
    if (lines.size() < 3 || events.empty()) {
        fprintf(stderr, "bench-process: %s holds no events\n", PROFILE);
        exit(1);
    }
    std::ofstream file(path);
    for (size_t i = 0; i < count - 2; ++i) file << events[i % events.size()] << '\n';
    file << lines[lines.size() - 2] << '\n' << lines[lines.size() - 1] << '\n';
}

void poll(benchmark::State& state, std::string path) {
    kBootProfPath = path;
    for (auto _ : state) Bootvigil::createInstance()->parseBootProf();
    if (Bootvigil::createInstance()->mLastLine.empty()) state.SkipWithError("no event was found");
}

void getlineAlone(benchmark::State& state, std::string path) {
    for (auto _ : state) {
        std::ifstream file(path);
        std::string line;
        while (std::getline(file, line)) benchmark::DoNotOptimize(line.data());
    }
}

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    const std::string log = setting("BENCH_LOG");
    const std::string folder = setting("BENCH_FOLDER");
    const long most = atol(setting("BENCH_LINES").c_str());

    const std::string text = readAll(log);
    benchmark::RegisterBenchmark("capture/file", captureFile, log, folder)->UseRealTime();
    benchmark::RegisterBenchmark("capture/command", captureCommand, log, folder)->UseRealTime();
    benchmark::RegisterBenchmark("capture/streamed", compressStreamed, text)->UseRealTime();
    benchmark::RegisterBenchmark("capture/memory", compressInMemory, text)->UseRealTime();
    for (long lines = 100; lines <= most; lines *= 10) {
        const std::string path = folder + "/profile-" + std::to_string(lines);
        writeProfile(path, static_cast<size_t>(lines));
        benchmark::RegisterBenchmark(("poll/" + std::to_string(lines)).c_str(), poll, path);
        benchmark::RegisterBenchmark(("getline/" + std::to_string(lines)).c_str(), getlineAlone,
                                     path);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    fflush(stdout);
    _exit(0);  // the monitor's handler thread runs for ever
}
