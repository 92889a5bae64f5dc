// export.h: marks what libTovanPlatform exports of namespace platform to the library above it.
#pragma once

#define PLATFORM_EXPORT __attribute__((visibility("default")))
