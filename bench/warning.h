// The warning that every contender writes, once an operation.
#pragma once

#define WARNING_FORMAT "The disk %s is %d %% full."
constexpr const char *kDisk = "/dev/sda1";
constexpr int kUsed = 93;
