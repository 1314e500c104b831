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

#include "leveling/archive/record.h"
#include "leveling/facts/run_facts.h"
#include "leveling/worker/audio_backend.h"
#include "leveling/worker/delivery.h"
#include "leveling/worker/media_module.h"
#include "leveling/worker/work_on.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" const quorvane::MediaModule* quorvane_media_module();

/** In place of the one that loads a shared object. */
const quorvane::MediaModule& quorvane::media_module() {
    return *quorvane_media_module();
}

/** The module is linked in. */
std::string quorvane::media_module_path() {
    return "";
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
    quorvane::Job job;
    job.input = fuzz::file("in.bin", data, size);
    job.output = (out / "out.bin").string();
    job.scratch = scratch.string();
    job.options.audio_stream = size % 2 == 0 ? 0 : -1;
    quorvane::Delivery delivery(job, {job.output, quorvane::state_of(job.output), ""});
    require(delivery.begin() == quorvane::Delivery::Begun::Ready);
    job.part = delivery.part();
    const quorvane::WorkResult result = quorvane::work_on(job, [](double /*done*/) {});
    const quorvane::FileFacts& facts = result.facts;
    if (facts.outcome != quorvane::Outcome::Failed) {
        delivery.deliver(result);
    }

    require(holds(job.input, data, size));
    require(fs::exists(job.output) == (facts.outcome != quorvane::Outcome::Failed));
    for (const fs::directory_entry& entry : fs::directory_iterator(out)) {
        require(entry.path() == job.output || entry.path() == job.part ||
                entry.path() == quorvane::record_path(job.output));
    }
    require(facts.outcome != quorvane::Outcome::Failed || !facts.cause.empty());
    if (facts.outcome == quorvane::Outcome::Leveled) {
        quorvane::FileFacts again;
        job.input = job.output;
        job.output.clear();
        quorvane::make_backend(job)->probe(again);
    }
    return 0;
}
