// Batches: many pictures rendered with one look, by worker processes over the machine's cores, with a
// progress bar, carrying on past a bad file and telling every failure at the end.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zorvex::cli {

struct BatchItem {
  std::string input, output;
  std::optional<uint64_t> seed;  // its own roll of the controls (--seed-each)
};

// True when -o names several outputs rather than one file: a pattern ({name}, {n}, {ext}), an existing
// folder, or a name ending in "/".
bool isOutputPlan(const std::string& out);

// The inputs that IN... names: files as given (a missing one too: it fails in its turn), and the
// pictures and videos in a folder, by name. Empty with `error` set when a folder can't be read or
// holds nothing to render.
std::vector<std::string> collectInputs(const std::vector<std::string>& args, std::string& error);

// The output of each input: `out` as a folder (the input's own name inside it) or a pattern in which {name} is the input's name without its extension, {ext} its extension and
// {n} its number from 1 (padded to the count's width). Empty with `error` set (a usage error) when
// the pattern is malformed, two inputs would share an output or an output would replace an input.
std::vector<std::string> planOutputs(const std::vector<std::string>& inputs, const std::string& out,
                                     std::string& error);

// Makes the folders the outputs go to; false with `error` naming one that can't be made.
bool makeOutputFolders(const std::vector<std::string>& outputs, std::string& error);

// Renders each item through `render` in up to `jobs` worker processes (in this one for a single item)
// and gives the exit code: 0 when all were written, 1 when any failed, each failure (the message
// `render` gave, which names the file) told on standard error at the end. A message given with
// success is a note, told as the item is done (unless `quiet`). With `seedEach` each file's seed is said as it is done. An interrupt stops the
// workers, whose unfinished files are removed, and ends this process as the signal would.
int runBatch(const std::vector<BatchItem>& items, int jobs, bool quiet, bool seedEach,
             const std::function<bool(const BatchItem& item, std::string& message)>& render);

// The number of cores this process may run on.
int availableCores();

}  // namespace zorvex::cli
