#include "Common/normalize/normalize.h"

#include "Common/normalize/CommandLine.h"
#include "Common/normalize/NormalizeOperation.h"

namespace normalize {

int _tmain(int argc, const char** argv) {
    FitResult fit;
    return run_normalize(argc, argv, fit);
}

int run_normalize(int argc, const char** argv, FitResult& fit, FitFailure on_failure) {
    try {
        fit = Normalize(GetArgs(argc, argv), on_failure);
        return 0;
    } catch (const ss_error& failure) {
        failure.report();
        return 1;
    }
}

}  // namespace normalize
