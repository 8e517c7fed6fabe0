// SPDX-License-Identifier: Apache-2.0
// libcutils' properties on a workstation: one file per property, /dev/__properties__/NAME, whose
// content is the value.

#include <cutils/properties.h>

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace {

constexpr const char* kPropertyDir = "/dev/__properties__";

std::string propertyPath(const char* name) {
    return std::string(kPropertyDir) + "/" + name;
}

}  // namespace

// As on a device, a property that can't be read or is empty has the default value; a value is cut
// at PROPERTY_VALUE_MAX - 1 bytes and at its first NUL.
int property_get(const char* key, char* value, const char* default_value) {
    value[0] = '\0';
    const int fd = open(propertyPath(key).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        const ssize_t size = TEMP_FAILURE_RETRY(read(fd, value, PROPERTY_VALUE_MAX - 1));
        value[size > 0 ? size : 0] = '\0';
        close(fd);
    }
    if (value[0] == '\0' && default_value != nullptr) {
        snprintf(value, PROPERTY_VALUE_MAX, "%s", default_value);
    }
    return static_cast<int>(strlen(value));
}

int property_set(const char* key, const char* value) {
    if (strlen(value) >= PROPERTY_VALUE_MAX) return -1;
    mkdir(kPropertyDir, 0755);
    const std::string path = propertyPath(key);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    const size_t size = strlen(value);
    const bool written = write(fd, value, size) == static_cast<ssize_t>(size);
    close(fd);
    return written ? 0 : -1;
}
