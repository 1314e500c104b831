#include "Common/normalize/normalize.h"

#include "Common/normalize/CommandLine.h"
#include "Common/normalize/NormalizeOperation.h"
#include "Common/step/run_entry.h"

namespace normalize {

namespace {

int normalize_tmain(int argc, const char** argv) {
    Normalize(GetArgs(argc, argv));
    return 0;
}

}  // namespace

int _tmain(int argc, const char** argv) {
    return run_entry(normalize_tmain, argc, argv, 1);
}

}  // namespace normalize
