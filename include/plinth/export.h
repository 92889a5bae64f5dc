// export.h: marks what libTovanCore exports to its clients.
#pragma once

#define PLINTH_EXPORT __attribute__((visibility("default")))
