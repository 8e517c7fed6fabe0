// SPDX-License-Identifier: Apache-2.0
// Leaves reports where the uploader collects them.

#pragma once

#include <string>

// Writes `text` to the upload file `path` and makes the file's folder if it is missing. An earlier
// report that is still uncollected stays as it is. What it finds is logged at `priority`, a failure
// as an error.
void leaveUpload(const std::string& path, const std::string& text, int priority);
