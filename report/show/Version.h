// SPDX-License-Identifier: Apache-2.0
// The version of this program.

#pragma once

namespace report {

// As git describes the tree that it was built from; "unknown" for a tree without git.
const char* version();

}  // namespace report
