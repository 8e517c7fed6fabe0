// SPDX-License-Identifier: Apache-2.0
// The interface of the log compressor, and the archive of its output directory.

#pragma once

namespace bootvigil {

// The base compresses nothing. Its texts belong to the owner and must outlive the object.
class CompressBase {
public:
    CompressBase();
    virtual ~CompressBase();

    // Each compresses one input into the file mOutputDir/fileName + mFileSuffix, replacing it. They
    // return 0, or -1 when the input can't be opened.
    virtual int compressComFile(char* input, char* fileName, int level);
    virtual int compressStreamFile(const char* input, const char* fileName, int level);
    virtual int compressShellCmdFile(char* cmd, char* fileName, int level);

    // Packs mOutputDir into the archive mOutputDir + mArchiveSuffix and removes the directory. Must
    // not be called while mArchiveSuffix is unset. 0, or -1 when no child process can be made.
    // By design: the daemon never calls it.
    virtual int endCompress();

    // By design: no operation writes the buffer, and the daemon sets none.
    virtual void insertBufferToFileHead(char* buffer);
    virtual void clearBufferToFileHead();

    const char* mOutputDir;
    char* mHeadBuffer;
    const char* mArchiveSuffix;  // the daemon leaves it unset
    const char* mFileSuffix;     // may be null: no suffix
};

}  // namespace bootvigil
