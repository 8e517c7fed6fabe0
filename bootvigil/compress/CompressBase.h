// SPDX-License-Identifier: Apache-2.0
// Interface of the log compressor, and the archiving of its output directory.

#pragma once

namespace bootvigil {

// The base compresses nothing. Its texts belong to the owner and must outlive the object.
class CompressBase {
public:
    CompressBase();
    virtual ~CompressBase();

    // Each compresses one input into the file mOutputDir/fileName + mFileSuffix, replacing it, and
    // returns 0, or -1 when the input can't be opened.
    virtual int compressComFile(char* input, char* fileName, int level);
    virtual int compressStreamFile(const char* input, const char* fileName, int level);
    virtual int compressShellCmdFile(char* cmd, char* fileName, int level);

    // Packs mOutputDir into the archive mOutputDir + mArchiveSuffix and removes the directory; not
    // to be called while mArchiveSuffix is unset. 0, or -1 when no child process can be made.
    virtual int endCompress();

    virtual void insertBufferToFileHead(char* buffer);
    virtual void clearBufferToFileHead();

    const char* mOutputDir;
    char* mHeadBuffer;  // set and cleared, but written to no output
    const char* mArchiveSuffix;
    const char* mFileSuffix;  // may be null: no suffix
};

}  // namespace bootvigil
