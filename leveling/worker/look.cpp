#include "leveling/worker/look.h"

#include <poll.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>

#include "leveling/audio/stretches.h"
#include "leveling/conversation/likeness.h"
#include "leveling/facts/file_error.h"
#include "leveling/report/listen.h"
#include "leveling/worker/audio_backend.h"
#include "leveling/worker/child_process.h"
#include "leveling/worker/media_module.h"

/*
 * One process looks at many files: its start costs more than a look. It answers in the order of the
 * jobs, so the first job without an answer is the one at which it died.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** What is known of a file before the look. */
FileFacts facts_at_first(const Job& job) {
    FileFacts facts;
    facts.input = job.input;
    facts.output = job.output;
    facts.outcome = Outcome::Planned;
    return facts;
}

FileFacts failed(const Job& job, const std::string& cause) {
    FileFacts facts = facts_at_first(job);
    facts.outcome = Outcome::Failed;
    facts.cause = cause;
    return facts;
}

using Event = nlohmann::ordered_json;

/** Reads all that the process sends. */
void follow(ChildProcess& process, const std::function<void(const Event&)>& take) {
    for (;;) {
        // Checked before reading, so that what was sent up to the end is read.
        const bool ended = process.at_end();
        process.read_events(take);
        process.read_output();
        if (ended) {
            return;
        }
        constexpr int kMilliseconds = 200;  // a process that ended may have left its pipes open
        pollfd watched[2] = {{process.events(), POLLIN, 0}, {process.output(), POLLIN, 0}};
        poll(watched, 2, kMilliseconds);
    }
}

/** Adds the answers of one process for the jobs behind those of `found`; at least one. */
void look_on(const std::vector<Job>& jobs, std::vector<FileFacts>& found) {
    const std::size_t done = found.size();
    ChildProcess process({jobs.begin() + static_cast<std::ptrdiff_t>(done), jobs.end()});
    follow(process, [&](const Event& event) {
        // One answer for each job, in their order; anything else is ignored.
        if (found.size() < jobs.size() && event.at("look") == found.size() - done) {
            found.push_back(facts_from_json(event.at("facts")));
        }
    });
    if (found.size() < jobs.size()) {
        found.push_back(failed(jobs[found.size()], process.cause_of_end()));
    }
}

}  // namespace

FileFacts look_into(const Job& job) {
    FileFacts facts = facts_at_first(job);
    try {
        const std::unique_ptr<AudioBackend> backend = make_backend(job);
        // Files that need decoders are looked into only where the options request it.
        if (backend->decodes() && !job.options.look_inside) {
            return facts;
        }
        backend->probe(facts);
        // Only a file that will be leveled needs channels that can be leveled.
        if (!job.output.empty()) {
            require_channels(facts, job.options);
        }
    } catch (const std::exception& error) {
        facts.outcome = Outcome::Failed;
        facts.cause = cause_of(error);
    }
    return facts;
}

std::vector<FileFacts> look_into_all(const std::vector<Job>& jobs) {
    std::vector<FileFacts> found;
    while (found.size() < jobs.size()) {
        const std::size_t before = found.size();
        try {
            look_on(jobs, found);
        } catch (const std::exception& error) {
            // Without any answer the first job fails, so that the loop comes to an end.
            if (found.size() == before) {
                found.push_back(failed(jobs[before], cause_of(error)));
            }
        }
    }
    // JSON's text may have lost bytes of the names.
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        found[i].input = jobs[i].input;
        found[i].output = jobs[i].output;
    }
    return found;
}

std::vector<std::vector<std::size_t>> conversations_of(const std::vector<Job>& jobs) {
    std::vector<std::string> inputs;
    inputs.reserve(jobs.size());
    for (const Job& job : jobs) {
        inputs.push_back(job.input);
    }
    return find_conversations(inputs);
}

std::vector<std::vector<std::size_t>> conversations_among(const std::vector<std::string>& inputs) {
    std::vector<Job> jobs;
    for (const std::string& input : inputs) {
        Job job;
        job.input = fs::absolute(input).string();
        job.compare = true;
        jobs.push_back(job);
    }
    std::vector<std::vector<std::size_t>> sets;
    try {
        ChildProcess process(jobs);
        follow(process, [&](const Event& event) {
            sets = event.at("sets").get<std::vector<std::vector<std::size_t>>>();
        });
    } catch (const std::exception&) {
        return {};  // no process can be started: the work itself will fail and report why
    }
    // The answer comes from a process that has read files of unknown origin.
    for (const std::vector<std::size_t>& set : sets) {
        if (std::any_of(set.begin(), set.end(),
                        [&](std::size_t at) { return at >= inputs.size(); })) {
            return {};
        }
    }
    return sets;
}

namespace {

/** Stretches of a file that libsndfile reads, or else the module for media files. */
Samples stretches_of(const std::string& path,
                     const FileFacts& facts,
                     const std::vector<Stretch>& all) {
    if (!facts.media) {
        return read_stretches(path, all);
    }
    const std::vector<int>& streams = facts.media->audio_streams;
    return media_module().read_stretches(path, streams.empty() ? 0 : streams.front(), all);
}

}  // namespace

std::string excerpts_of(const Job& job) {
    FileFacts facts = facts_from_json(Event::parse(job.excerpts_for));
    facts.input = job.input;  // JSON's text may have lost bytes of the names
    facts.output = job.output;
    return listening_part(facts, [&](const std::string& path, const std::vector<Stretch>& all) {
        return stretches_of(path, facts, all);
    });
}

std::string listening_part_of(const FileFacts& facts) {
    if (facts.outcome != Outcome::Leveled) {
        return "";
    }
    Job job;
    job.input = fs::absolute(facts.input).string();
    job.output = fs::absolute(facts.output).string();
    job.excerpts_for = dump(to_json(facts));
    std::string text;
    try {
        ChildProcess process({job});
        follow(process, [&](const Event& event) { text = event.at("text").get<std::string>(); });
    } catch (const std::exception&) {
        return "";  // a page is not worth less without it
    }
    return text;
}

}  // namespace quorvane
