#include "cli/batch.h"

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "cli/args.h"
#include "cli/progress.h"
#include "native/interruptible_output.h"

namespace zorvex::cli {
namespace fs = std::filesystem;
namespace {

// What a folder given as input contributes: the files of these types.
constexpr const char* kKnownExtensions[] = {".png", ".jpg", ".jpeg", ".gif", ".mp4", ".m4v",
                                            ".mov", ".mkv", ".webm", ".avi"};

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool hasKnownExtension(const fs::path& p) {
  const std::string ext = lower(p.extension().string());
  return std::any_of(std::begin(kKnownExtensions), std::end(kKnownExtensions), [&](const char* k) { return ext == k; });
}

bool isPattern(const std::string& out) { return out.find('{') != std::string::npos; }

// The pattern with its fields filled in, or empty with `error` set.
std::string expand(const std::string& pattern, const fs::path& input, size_t number, size_t count, std::string& error) {
  std::string n = std::to_string(number);
  n.insert(0, std::to_string(count).size() - std::min(n.size(), std::to_string(count).size()), '0');
  const std::string ext = input.extension().string();
  const std::map<std::string, std::string> fields = {
      {"name", input.stem().string()}, {"ext", ext.empty() ? "" : ext.substr(1)}, {"n", n}};
  std::string out;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '{') {
      out += pattern[i];
      continue;
    }
    const size_t close = pattern.find('}', i);
    const auto field = close == std::string::npos ? fields.end() : fields.find(pattern.substr(i + 1, close - i - 1));
    if (field == fields.end()) {
      error = "-o " + pattern + ": use {name}, {n} and {ext} in a pattern, not \"" +
              pattern.substr(i, close == std::string::npos ? std::string::npos : close - i + 1) + "\"";
      return {};
    }
    out += field->second;
    i = close;
  }
  return out;
}

// Signals that arrive while the workers run; the parent stops them and ends as the signal would.
volatile sig_atomic_t gInterrupt = 0;
extern "C" void noteInterrupt(int signal) { gInterrupt = signal; }

struct Worker {
  pid_t pid = -1;
  int jobs = -1;     // the parent writes item numbers here
  int results = -1;  // and reads lines back from here
  long item = -1;    // the item in work, or -1
  std::string pending;
};

// One line per item from a worker: "ok N [note]" or "failed N message".
void workerLoop(int jobs, int results, const std::vector<BatchItem>& items,
                const std::function<bool(const BatchItem&, std::string&)>& render) {
  uint32_t index;
  while (read(jobs, &index, sizeof index) == ssize_t(sizeof index)) {
    if (index >= items.size()) break;
    std::string message;
    const bool ok = render(items[index], message);
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::string line = (ok ? "ok " : "failed ") + std::to_string(index);
    if (!message.empty()) line.append(" ").append(message);
    line.append("\n");
    for (size_t sent = 0; sent < line.size();) {
      const ssize_t n = write(results, line.data() + sent, line.size() - sent);
      if (n <= 0) return;
      sent += size_t(n);
    }
  }
}

bool spawn(Worker& w, const std::vector<BatchItem>& items,
           const std::function<bool(const BatchItem&, std::string&)>& render) {
  int jobs[2], results[2];
  if (pipe(jobs) != 0) return false;
  if (pipe(results) != 0) {
    close(jobs[0]);
    close(jobs[1]);
    return false;
  }
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) {
    for (int fd : {jobs[0], jobs[1], results[0], results[1]}) close(fd);
    return false;
  }
  if (pid == 0) {
    close(jobs[1]);
    close(results[0]);
    native::installInterruptCleanup();
    workerLoop(jobs[0], results[1], items, render);
    std::fflush(nullptr);
    _exit(0);
  }
  close(jobs[0]);
  close(results[1]);
  w = Worker{pid, jobs[1], results[0], -1, {}};
  return true;
}

void assign(Worker& w, size_t item) {
  const uint32_t index = uint32_t(item);
  w.item = long(item);
  if (write(w.jobs, &index, sizeof index) != ssize_t(sizeof index)) {
    // The worker is gone; its end of the results pipe says so next.
  }
}

void retire(Worker& w) {
  if (w.jobs >= 0) close(w.jobs);
  if (w.results >= 0) close(w.results);
  w.jobs = w.results = -1;
  if (w.pid > 0) waitpid(w.pid, nullptr, 0);
  w.pid = -1;
}

std::string describeEnd(int status) {
  if (WIFSIGNALED(status)) return std::string("the render stopped (") + strsignal(WTERMSIG(status)) + ")";
  return "the render stopped (exit status " + std::to_string(WEXITSTATUS(status)) + ")";
}

}  // namespace

int availableCores() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) return std::max(1, CPU_COUNT(&set));
  return int(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
}

bool isOutputPlan(const std::string& out) {
  if (isPattern(out) || (!out.empty() && out.back() == '/')) return true;
  std::error_code ec;
  return fs::is_directory(out, ec);
}

std::vector<std::string> collectInputs(const std::vector<std::string>& args, std::string& error) {
  std::vector<std::string> inputs;
  for (const std::string& arg : args) {
    std::error_code ec;
    if (!fs::is_directory(arg, ec)) {
      inputs.push_back(arg);
      continue;
    }
    std::vector<std::string> found;
    for (fs::directory_iterator it(arg, ec), end; !ec && it != end; it.increment(ec)) {
      const fs::path& p = it->path();
      std::error_code typeError;
      if (p.filename().string().rfind('.', 0) == 0 || !hasKnownExtension(p) || !fs::is_regular_file(p, typeError))
        continue;
      found.push_back(p.string());
    }
    if (ec) {
      error = arg + ": can't read the folder (" + ec.message() + ")";
      return {};
    }
    if (found.empty()) {
      error = arg + ": the folder holds no pictures or videos (.png, .jpg, .gif, .mp4, .mov, .mkv, .webm, .avi)";
      return {};
    }
    std::sort(found.begin(), found.end());
    inputs.insert(inputs.end(), found.begin(), found.end());
  }
  return inputs;
}

std::vector<std::string> planOutputs(const std::vector<std::string>& inputs, const std::string& out,
                                     std::string& error) {
  std::vector<std::string> outputs;
  const bool pattern = isPattern(out);
  std::error_code ec;
  if (!pattern && !fs::is_directory(out, ec) && hasKnownExtension(out) && out.back() != '/') {
    error = "-o " + out + " names one file, and there are several inputs: give a folder or a pattern such as "
            "'out/{name}.png'";
    return {};
  }
  for (size_t i = 0; i < inputs.size(); ++i) {
    const fs::path input(inputs[i]);
    std::string o = pattern ? expand(out, input, i + 1, inputs.size(), error) : (fs::path(out) / input.filename()).string();
    if (o.empty()) return {};
    outputs.push_back(o);
  }
  if (pattern && inputs.size() > 1 && out.find("{name}") == std::string::npos && out.find("{n}") == std::string::npos) {
    error = "-o " + out + ": with several inputs the pattern needs {name} or {n}, or each would overwrite the last";
    return {};
  }
  // No output over an input, and no two outputs alike.
  const auto key = [](const std::string& p) {
    std::error_code ec;
    const fs::path k = fs::weakly_canonical(p, ec);
    return ec ? p : k.string();
  };
  std::map<std::string, size_t> seen;
  for (const std::string& input : inputs) seen[key(input)];
  for (size_t i = 0; i < outputs.size(); ++i) {
    if (seen.count(key(outputs[i]))) {
      error = outputs[i] + " is an input: it would be overwritten (give -o another folder or pattern)";
      return {};
    }
  }
  seen.clear();
  for (size_t i = 0; i < outputs.size(); ++i) {
    if (auto [it, added] = seen.emplace(key(outputs[i]), i); !added) {
      error = inputs[it->second] + " and " + inputs[i] + " would both be written to " + outputs[i] +
              " (put {n} in the -o pattern)";
      return {};
    }
  }
  return outputs;
}

bool makeOutputFolders(const std::vector<std::string>& outputs, std::string& error) {
  std::set<fs::path> folders;
  for (const std::string& o : outputs) folders.insert(fs::path(o).parent_path());
  for (const fs::path& folder : folders) {
    std::error_code ec;
    if (folder.empty() || fs::is_directory(folder, ec)) continue;
    if (!fs::create_directories(folder, ec) && ec) {
      error = folder.string() + ": can't make the folder (" + ec.message() + ")";
      return false;
    }
  }
  return true;
}

int runBatch(const std::vector<BatchItem>& items, int jobs, bool quiet, bool seedEach,
             const std::function<bool(const BatchItem&, std::string&)>& render) {
  ProgressBar bar("files", int64_t(items.size()), ProgressBar::wanted(quiet));
  std::vector<std::string> failures(items.size());
  size_t done = 0, failed = 0, next = 0;
  auto finishItem = [&](size_t item, bool ok, const std::string& message) {
    ++done;
    if (!ok) {
      ++failed;
      failures[item] = message.empty() ? items[item].input + ": it failed" : message;
    } else if (!quiet) {
      if (seedEach && items[item].seed) bar.say(items[item].input + ": seed " + std::to_string(*items[item].seed));
      if (!message.empty()) bar.say(message);
    }
    bar.update(int64_t(done));
  };
  auto report = [&] {
    bar.finish();
    for (size_t i = 0; i < items.size(); ++i)
      if (!failures[i].empty()) complain(failures[i]);
    if (failed) complain(std::to_string(failed) + " of " + std::to_string(items.size()) + " failed");
    return failed ? kExitFailure : kExitOk;
  };
  bar.update(0);

  if (items.size() == 1) {
    native::installInterruptCleanup();
    std::string error;
    const bool ok = render(items[0], error);
    finishItem(0, ok, error);
    return report();
  }

  // The parent only hands out items and listens; an interrupt ends the workers first.
  struct sigaction action {}, previous[3];
  action.sa_handler = noteInterrupt;
  sigemptyset(&action.sa_mask);
  const int signals[3] = {SIGINT, SIGTERM, SIGHUP};
  bool handled[3] = {};
  for (int i = 0; i < 3; ++i) {
    // A signal the shell told this process to ignore (a background job's SIGINT) stays ignored.
    if (sigaction(signals[i], nullptr, &previous[i]) == 0 && previous[i].sa_handler == SIG_IGN) continue;
    handled[i] = sigaction(signals[i], &action, nullptr) == 0;
  }
  std::signal(SIGPIPE, SIG_IGN);

  std::vector<Worker> workers(size_t(std::clamp<int>(jobs, 1, int(items.size()))));
  for (Worker& w : workers) {
    if (!spawn(w, items, render)) break;
    assign(w, next++);
  }
  if (std::none_of(workers.begin(), workers.end(), [](const Worker& w) { return w.pid > 0; })) {
    complain(std::string("can't start a worker process (") + std::strerror(errno) + ")");
    return kExitFailure;
  }

  while (done < items.size() && !gInterrupt) {
    std::vector<pollfd> fds;
    std::vector<Worker*> owners;
    for (Worker& w : workers)
      if (w.results >= 0) {
        fds.push_back({w.results, POLLIN, 0});
        owners.push_back(&w);
      }
    if (fds.empty()) break;
    if (poll(fds.data(), fds.size(), 250) < 0) continue;  // EINTR: the loop looks at gInterrupt
    for (size_t k = 0; k < fds.size(); ++k) {
      if (!fds[k].revents) continue;
      Worker& w = *owners[k];
      char buffer[4096];
      const ssize_t n = read(w.results, buffer, sizeof buffer);
      if (n > 0) {
        w.pending.append(buffer, size_t(n));
        for (size_t nl; (nl = w.pending.find('\n')) != std::string::npos;) {
          const std::string line = w.pending.substr(0, nl);
          w.pending.erase(0, nl + 1);
          const bool ok = line.rfind("ok ", 0) == 0;
          const size_t start = ok ? 3 : 7, space = line.find(' ', start);
          const size_t item = size_t(std::stoul(line.substr(start, space - start)));
          finishItem(item, ok, space == std::string::npos ? "" : line.substr(space + 1));
          w.item = -1;
          if (next < items.size()) {
            assign(w, next++);
          } else {
            close(w.jobs);  // no more work: the worker ends
            w.jobs = -1;
          }
        }
        continue;
      }
      // The worker ended: after its last item, or in the middle of one.
      if (n < 0 && errno == EINTR) continue;
      const long lost = w.item;
      int status = 0;
      close(w.results);
      w.results = -1;
      if (w.jobs >= 0) close(w.jobs);
      w.jobs = -1;
      waitpid(w.pid, &status, 0);
      w.pid = -1;
      if (lost >= 0 && !gInterrupt) {
        finishItem(size_t(lost), false, items[size_t(lost)].input + ": " + describeEnd(status));
        if (next < items.size() && spawn(w, items, render)) assign(w, next++);
      }
    }
  }

  if (gInterrupt) {
    for (Worker& w : workers)
      if (w.pid > 0) kill(w.pid, SIGTERM);
    for (Worker& w : workers) retire(w);
    bar.finish();
    complain("interrupted: " + std::to_string(done - failed) + " of " + std::to_string(items.size()) +
             " written; no unfinished file is left");
    const int sig = gInterrupt;
    std::signal(sig, SIG_DFL);
    raise(sig);
    return 128 + sig;
  }
  for (Worker& w : workers) retire(w);
  for (int i = 0; i < 3; ++i)
    if (handled[i]) sigaction(signals[i], &previous[i], nullptr);
  // Items never handed out (no worker could be started again) count as failed.
  for (; next < items.size(); ++next) finishItem(next, false, items[next].input + ": no worker process was left to render it");
  return report();
}

}  // namespace zorvex::cli
