// SPDX-License-Identifier: Apache-2.0
// Where the lab's own data lie: scenarios and profiles.

#include "lab/base/DataFolder.h"

namespace lab {

std::string dataPath(const std::string& name) {
    return LAB_DATA_DIR "/" + name;
}

}  // namespace lab
