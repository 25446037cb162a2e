#pragma once
// Result types of the secure-aggregation core for gradient-file (FLGR)
// requests. The system never looks inside them: it hands them on by shared
// pointer from the core's result callback to the client's completion, so
// they are declared opaque here. A shared pointer to an incomplete type may be
// empty, copied and destroyed; only the core, which defines them, creates one.

struct FlgrResultContext;
struct FlgrResults;
