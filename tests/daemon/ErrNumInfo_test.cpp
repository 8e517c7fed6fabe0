// SPDX-License-Identifier: Apache-2.0
// Tests of the failure record, its file, submission, revert and stamps.

#include "bootvigil/ErrNumInfo.h"

#include <android/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/daemon/DeviceTest.h"

using namespace lab;

namespace {

class ErrNumInfoTest : public DeviceTest {
protected:
    // The line that a failure leaves in a fresh record file.
    std::string lineOf(ErrNumInfo& info) {
        remove(kRecord);
        EXPECT_TRUE(info.saveLogInfo());
        return read(kRecord);
    }

    // The payload that `line`, as the last of the record file, leaves for the uploader.
    std::string submitted(const std::string& line) {
        remove(kFailureUpload);
        write(kRecord, "TIME:an earlier one;    ERR_NUM:0x1;    ERR_INFO:x\n" + line);
        ErrNumInfo::submitInfo();
        return read(kFailureUpload);
    }
};

TEST_F(ErrNumInfoTest, LinePacksTheCodes) {
    const struct {
        uint8_t type, phase, detail, reason;
        const char* number;
        const char* flag;
    } cases[] = {
            {1, 3, 1, 100, "0x301164", "3"},    {5, 8, 1, 100, "0x801564", "8"},
            {2, 4, 255, 100, "0x4ff264", "4"},  {5, 0, 1, 100, "0x1564", "0"},
            {0x15, 18, 0, 0, "0x200500", "18"}, {255, 255, 255, 255, "0xffffff", "255"},
    };
    ErrNumInfo info;
    for (const auto& c : cases) {
        info.mErrType = c.type;
        info.mMainPhase = c.phase;
        info.mDetailPhase = c.detail;
        info.mReason = c.reason;
        EXPECT_EQ(lineOf(info), std::string("TIME:not set;    ERR_NUM:") + c.number +
                                        ";    ERR_INFO:;    ERR_EXPINFO:Country(0)  ;\n");
        EXPECT_EQ(read(kFlag), c.flag);
    }
    setProperty("persist.sys.oobe_country", "NG");
    info.setLocalTimeStamp();
    info.setCoreErrInfo(std::string(256, 'c') + "d");
    EXPECT_EQ(lineOf(info), "TIME:Sun Nov 15 11:00:00 2026;    ERR_NUM:0xffffff;    ERR_INFO:" +
                                    std::string(256, 'c') + ";    ERR_EXPINFO:Country(NG)  ;\n");
}

TEST_F(ErrNumInfoTest, FileIsRestartedAt5120Bytes) {
    ErrNumInfo info;
    write(kRecord, std::string(5118, 'x') + "\n");
    EXPECT_TRUE(info.saveLogInfo());
    EXPECT_EQ(read(kRecord).substr(0, 5124), std::string(5118, 'x') + "\nTIME:");
    EXPECT_FALSE(exists(kBackup));
    const std::string before(5120, 'x');
    write(kRecord, before);
    write(kBackup, std::string(9000, 'y'));
    EXPECT_TRUE(info.saveLogInfo());
    EXPECT_EQ(read(kBackup), before);
    EXPECT_EQ(read(kRecord).substr(0, 5), "TIME:");
}

TEST_F(ErrNumInfoTest, LineThenFlagThenWord) {
    static std::string seen;
    __android_log_set_logger([](const __android_logger_data*, const char*) {
        seen += read(kRecord).substr(0, 5) + read(kFlag) + " ";
    });
    EXPECT_TRUE(ErrNumInfo().saveLogInfo());
    EXPECT_EQ(seen, "TIME:<missing> TIME:<missing> TIME:0 ");
}

TEST_F(ErrNumInfoTest, WhatCannotBeOpened) {
    ErrNumInfo info;
    mkdir(kFlag.c_str(), 0755);
    EXPECT_TRUE(info.saveLogInfo());
    EXPECT_TRUE(logged("E Save file path /velafs/SDD/bfflag.txt fail, open fail."));
    remove(kRecord);
    mknod(kRecord.c_str(), S_IFSOCK | 0600, 0);  // is there, but can't be opened
    EXPECT_FALSE(info.saveLogInfo());
    EXPECT_TRUE(logged("E Save file path /velafs/SDD/bfRecord.txt fail, fstream fail."));
    EXPECT_FALSE(ErrNumInfo::saveRecoveryInfo(1));
    EXPECT_TRUE(logged("E Save file path /velafs/SDD/bfRecord.txt fail, open fail."));
    EXPECT_FALSE(ErrNumInfo::revertLastInfo());
    EXPECT_TRUE(logged("E read open /velafs/SDD/bfRecord.txt failed"));
    ErrNumInfo::submitInfo();
    EXPECT_TRUE(logged("E submitLogInfo: read open /velafs/SDD/bfRecord.txt failed"));
    remove(kRecord);
    EXPECT_FALSE(ErrNumInfo::revertLastInfo());
    EXPECT_TRUE(logged("E access /velafs/SDD/bfRecord.txt failed"));
    ErrNumInfo::submitInfo();
    EXPECT_TRUE(logged("E submitLogInfo: access /velafs/SDD/bfRecord.txt failed"));
    EXPECT_FALSE(exists("/velafs/SDD/bf_upload"));
}

TEST_F(ErrNumInfoTest, StampsExistingFilesOnly) {
    EXPECT_FALSE(ErrNumInfo::saveRecoveryInfo(1));
    EXPECT_TRUE(logged("E not find path /velafs/SDD/bfRecord.txt."));
    EXPECT_FALSE(exists(kRecord));
    write(kRecord, std::string(6000, 'x') + "\n");
    EXPECT_TRUE(ErrNumInfo::saveRecoveryInfo(2));
    EXPECT_EQ(read(kRecord).substr(6001),
              "TIME:Sun Nov 15 11:00:00 2026;    ERR_NUM:0xf00002;    ERR_INFO:;    "
              "ERR_EXPINFO:;\n");
}

TEST_F(ErrNumInfoTest, RevertTakesTheLastLine) {
    for (const auto& [before, after] :
         std::vector<std::pair<std::string, std::string>>{{"a\nb\nc\n", "a\nb\n"},
                                                          {"a\nb", "a\n"},
                                                          {"a\n\n", "a\n"},
                                                          {"a\n", ""}}) {
        write(kRecord, before);
        EXPECT_TRUE(ErrNumInfo::revertLastInfo());
        EXPECT_EQ(read(kRecord), after);
    }
    EXPECT_FALSE(ErrNumInfo::revertLastInfo());
    EXPECT_TRUE(logged("E no line in /velafs/SDD/bfRecord.txt"));
}

TEST_F(ErrNumInfoTest, SubmitsTheLastLineInShort) {
    const char* time = "TIME:Sun Nov 15 11:05:18 2026;    ERR_NUM:";
    const struct {
        std::string line;
        const char* upload;
    } cases[] = {
            {std::string(time) + "0x301164;    ERR_INFO:;    ERR_EXPINFO:Country(NG)  ;\n",
             "BOOTVIGIL|0x301164|Sun Nov 15 11|NA"},
            {std::string(time) + "0x502564;    ERR_INFO:567-main | Zygote:Preload;    E\n",
             "BOOTVIGIL|0x502564|Sun Nov 15 11|567-main | Zygote"},
            {std::string(time) + "0x1564;    ERR_INFO:x", "BOOTVIGIL|0x1564|Sun Nov 15 11|x"},
            {std::string(time) + "0x601564;    ERR_INFO:x\n", "<missing>"},
            {std::string(time) + "0x701564;    ERR_INFO:x\n", "<missing>"},
            {std::string(time) + "0x6;    ERR_INFO:x\n", "<missing>"},
            {std::string(time) + "0x;    ERR_INFO:x\n", "BOOTVIGIL|0x|Sun Nov 15 11|x"},
            {"TIME:;    ERR_NUM:0x1;    ERR_INFO:x\n", "BOOTVIGIL|Unknow|Unknow|Unknow"},
            {"TIME:t;    ERR_NUM:;    ERR_INFO:x\n", "BOOTVIGIL|Unknow|Unknow|Unknow"},
            {"TIME:t;    ERR_NUM:0x701564\n", "BOOTVIGIL|Unknow|Unknow|Unknow"},
            {"no separators\n", "BOOTVIGIL|Unknow|Unknow|Unknow"},
            {std::string(time) + "0x301164;    ERR_INFO:x\n\n", "BOOTVIGIL|Unknow|Unknow|Unknow"},
            {std::string("\0\xff;    \0", 8), "BOOTVIGIL|Unknow|Unknow|Unknow"},
    };
    for (const auto& c : cases) EXPECT_EQ(submitted(c.line), c.upload) << c.line;
    EXPECT_EQ(modeOf(kFailureUpload), 0777);
    EXPECT_EQ(modeOf("/velafs/SDD/bf_upload"), 0777);

    remove(kFailureUpload);
    symlink("/none/upload", kFailureUpload.c_str());
    ErrNumInfo::submitInfo();
    EXPECT_TRUE(logged("E Open file path /velafs/SDD/bf_upload/boot_vigil fail."));
    remove(kFailureUpload);
    write(kFailureUpload, "uncollected");
    ErrNumInfo::submitInfo();
    EXPECT_EQ(read(kFailureUpload), "uncollected");
    EXPECT_TRUE(logged("D BOOTVIGIL /velafs/SDD/bf_upload/boot_vigil exist \n"));
}

}  // namespace
