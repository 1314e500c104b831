/*
 * Bytes of any container, libsndfile's and FFmpeg's alike, into all that a batch does with one
 * file: probe, decode, measure, level, encode, metadata, check, place. The input keeps its bytes,
 * nothing but the output and its record stays in the folder, and what counts as leveled can be
 * opened again.
 */
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "cli/archive/record.h"
#include "cli/facts/run_facts.h"
#include "cli/worker/carrier.h"
#include "cli/worker/delivery.h"
#include "cli/worker/file_work.h"
#include "cli/worker/media_module.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" const cli::MediaModule* quorvane_media_module();

/** In place of the one that loads a shared object. */
const cli::MediaModule& cli::media_module() {
    return *quorvane_media_module();
}

namespace fs = std::filesystem;

namespace {

/** Ends the process, and with it the fuzzing, where a promise does not hold. */
void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool holds(const std::string& path, const std::uint8_t* data, std::size_t size) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    return bytes == std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryBound bound(size);
    const fs::path out = fuzz::folder() + "out";
    const fs::path scratch = fuzz::folder() + "scratch";
    for (const fs::path& folder : {out, scratch}) {
        fs::remove_all(folder);
        fs::create_directory(folder);
    }
    cli::Job job;
    job.input = fuzz::file("in.bin", data, size);
    job.output = (out / "out.bin").string();
    job.scratch = scratch.string();
    job.options.audio_stream = size % 2 == 0 ? 0 : -1;
    cli::Delivery delivery(job, {job.output, cli::state_of(job.output), ""});
    require(delivery.begin() == cli::Delivery::Begun::Ready);
    job.part = delivery.part();
    const cli::WorkResult result = cli::work_on(job, [](double /*done*/) {});
    const cli::FileFacts& facts = result.facts;
    if (facts.outcome != cli::Outcome::Failed) {
        delivery.deliver(result);
    }

    require(holds(job.input, data, size));
    require(fs::exists(job.output) == (facts.outcome != cli::Outcome::Failed));
    for (const fs::directory_entry& entry : fs::directory_iterator(out)) {
        require(entry.path() == job.output || entry.path() == job.part ||
                entry.path() == cli::record_path(job.output));
    }
    require(facts.outcome != cli::Outcome::Failed || !facts.cause.empty());
    if (facts.outcome == cli::Outcome::Leveled) {
        cli::FileFacts again;
        job.input = job.output;
        job.output.clear();
        cli::make_carrier(job)->probe(again);
    }
    return 0;
}
