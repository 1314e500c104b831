#include "leveling/archive/shards.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <queue>
#include <utility>

namespace quorvane {
// The largest first, each to the shard with the least so far: parts of nearly equal size.
std::vector<std::size_t> cut_shards(const std::vector<ShardItem>& items, std::size_t count) {
    std::vector<std::size_t> order(items.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return items[a].bytes != items[b].bytes ? items[a].bytes > items[b].bytes
                                                : items[a].path < items[b].path;
    });
    using Load = std::pair<std::int64_t, std::size_t>;  // bytes so far, shard
    std::priority_queue<Load, std::vector<Load>, std::greater<>> loads;
    // An item goes to an empty shard while there is one, so shards beyond their number stay empty.
    for (std::size_t shard = 0; shard < std::min(count, items.size()); ++shard) {
        loads.push({0, shard});
    }
    std::vector<std::size_t> shard_of(items.size());
    for (std::size_t item : order) {
        auto [bytes, shard] = loads.top();
        loads.pop();
        shard_of[item] = shard;
        loads.push({bytes + items[item].bytes + kBytesPerFile, shard});
    }
    return shard_of;
}

}  // namespace quorvane
