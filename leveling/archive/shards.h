#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorvane {

/** What is shared out: a path, and its size in bytes. */
struct ShardItem {
    std::string path;
    std::int64_t bytes = 0;
};

/** What a file costs besides its bytes (process, header, sync), in bytes that cost as much. */
constexpr std::int64_t kBytesPerFile = std::int64_t{64} * 1024;

/**
 * The shard of every item, each below count. Whoever has the same items and count gets the same
 * shards, whatever the order: the largest item goes first, each to the shard that has least so far
 * (longest processing time first, Graham 1969), so that the largest shard is at most 4/3 of what
 * the best cut could reach, and two shards differ by the largest item at most.
 */
std::vector<std::size_t> cut_shards(const std::vector<ShardItem>& items, std::size_t count);

}  // namespace quorvane
