#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// What both watchers share: walking a part of the tree they watch, naming what they report, and
// how they gather changes into batches.
namespace platform::tree_walk {

using Wanted = std::function<bool(std::string_view)>;

// An editor's save (write, rename, chmod) takes a few milliseconds: changes that follow each
// other within kSettle make one batch, and a burst such as a checkout is cut into batches of at
// most kLongestBatch, so that the caller keeps up.
constexpr std::chrono::milliseconds kSettle{10};
constexpr std::chrono::milliseconds kLongestBatch{50};
// Longer waits are cut to this, so that a deadline never overflows.
constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(24 * 365);

// `name` inside the relative directory `parent` ("" is the root).
std::string child_path(std::string_view parent, std::string_view name);

// 1,234,567
std::string with_commas(std::size_t number);

// Walks the directory `relative` of `root` and the wanted directories below it, opening each
// component without following a link. `enter(relative)` is called for each directory before it
// is listed (false leaves it and what lies below alone), `found(relative)` for every entry listed.
// What cannot be opened or listed (gone meanwhile, unreadable) is passed over; what `enter`
// throws goes through.
void walk(const std::string& root, const std::string& relative, const Wanted& wanted,
          const std::function<bool(const std::string&)>& enter,
          const std::function<void(std::string&&)>& found);

}  // namespace platform::tree_walk
