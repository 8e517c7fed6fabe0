// SPDX-License-Identifier: Apache-2.0
// What libcutils' properties.h takes from a device's C library; a workstation's has no such header.

#pragma once

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92  // with the closing NUL
