#include "check/runner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>

#include "operations/text/nearest_name.h"

namespace qel::check {
namespace {

/// What the process of a rule leaves for the tool; in memory that both share.
struct Report {
  char doing[256];
  char fault[1024];
  char not_supported[256];
  bool finished;
};

Report* report_of_child = nullptr;

// The limit counts processor time, which a busy machine does not shorten; waiting in vain ends too.
constexpr int kWaitingFactor = 10;

template <size_t kSize>
void Write(char (&field)[kSize], const std::string& text) {
  const size_t length = std::min(text.size(), kSize - 1);
  std::memcpy(field, text.data(), length);
  field[length] = '\0';
}

struct Unmap {
  void operator()(Report* report) const { munmap(report, sizeof(Report)); }
};

std::unique_ptr<Report, Unmap> MapReport() {
  void* const memory =
      mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return std::unique_ptr<Report, Unmap>(new (memory) Report{});
}

/// The child's side. Ends the process without destructors: those of a broken library may not come
/// back.
[[noreturn]] void RunBody(const std::function<void()>& body, int seconds, bool keep_output) {
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  rlimit processor_time{};
  getrlimit(RLIMIT_CPU, &processor_time);
  processor_time.rlim_cur = std::min(processor_time.rlim_max, static_cast<rlim_t>(seconds));
  setrlimit(RLIMIT_CPU, &processor_time);
  if (!keep_output) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
  }
  try {
    body();
  } catch (const std::exception& error) {
    Write(report_of_child->fault, error.what()[0] != '\0' ? error.what() : "an exception");
  } catch (...) {
    Write(report_of_child->fault, "an exception of an unknown type");
  }
  std::cout.flush();
  std::fflush(stdout);
  report_of_child->finished = true;
  _exit(0);
}

/// True when the pipe's other end was closed within the time: the child is gone.
bool WaitForEnd(int pipe, int seconds) {
  pollfd end{pipe, POLLIN, 0};
  int result = 0;
  do {
    result = poll(&end, 1, seconds * 1000);
  } while (result < 0 && errno == EINTR);
  return result > 0;
}

Ending DescribeEnd(const Report& report, int status, bool in_time, int seconds) {
  Ending ending{.fault = report.fault, .not_supported = report.not_supported};
  const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  if (!in_time || signal == SIGXCPU) {
    ending.fault = "did not end within " + std::to_string(seconds) + " s";
  } else if (!report.finished && ending.fault.empty()) {
    ending.broke_off = true;
    ending.fault =
        signal != 0 ? "ended by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")"
                    : "ended the process with code " + std::to_string(WEXITSTATUS(status));
  }
  if (!ending.fault.empty() && report.doing[0] != '\0') {
    ending.fault = std::string(report.doing) + ": " + ending.fault;
  }
  return ending;
}

/// The rule of reference counts that the library breaks, with what it does; empty when it keeps
/// all.
std::string BrokenCounting(const Rules& rules, const std::filesystem::path& library, int seconds) {
  for (const Rule& rule : rules) {
    if (rule.kind != kCounting) continue;
    const Ending ending = RunApart([&] { rule.check(*new Subject(library)); }, seconds);
    if (!ending.fault.empty()) return rule.FullName() + ": " + ending.fault;
  }
  return {};
}

Rules Select(const Rules& rules, const std::string& filter) {
  Rules selected;
  std::vector<std::string_view> names;
  for (const Rule& rule : rules) {
    if (filter.empty() || filter == rule.suite || filter == rule.FullName()) {
      selected.push_back(rule);
    }
    names.push_back(rule.suite);
  }
  if (!selected.empty()) return selected;
  throw std::invalid_argument("there is no suite " + filter +
                              operations::DidYouMean(filter, names, "; --list shows them"));
}

}  // namespace

void Doing(const std::string& what) {
  if (report_of_child != nullptr) Write(report_of_child->doing, what);
}

void NotSupported(const std::string& what) {
  if (report_of_child == nullptr) return;
  const std::string noted = report_of_child->not_supported;
  if ((", " + noted + ", ").find(", " + what + ", ") != std::string::npos) return;
  Write(report_of_child->not_supported, noted.empty() ? what : noted + ", " + what);
}

void Found(const std::string& fault) {
  if (report_of_child != nullptr) Write(report_of_child->fault, fault);
}

Ending RunApart(const std::function<void()>& body, int seconds, bool keep_output) {
  const auto report = MapReport();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
  std::cout.flush();
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    report_of_child = report.get();
    RunBody(body, seconds, keep_output);
  }
  close(ends[1]);
  const bool in_time = child > 0 && WaitForEnd(ends[0], kWaitingFactor * seconds);
  close(ends[0]);
  if (child < 0) {
    throw std::runtime_error("no process for the check: " + std::string(std::strerror(errno)));
  }
  if (!in_time) kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return DescribeEnd(*report, status, in_time, seconds);
}

bool CheckLibrary(const Rules& rules, const std::string& path, const CheckOptions& options,
                  std::ostream& output) {
  const Rules selected = Select(rules, options.filter);
  const std::filesystem::path library = std::filesystem::absolute(path);
  const std::string not_loaded = RunApart([&] { Subject subject(library); }, options.seconds).fault;
  if (!not_loaded.empty()) throw std::runtime_error(not_loaded);
  size_t broken = 0;
  std::optional<std::string> cause;  // of processes that broke off, once it was looked for
  std::string explained;             // rules that broke off for that cause
  for (const Rule& rule : selected) {
    const Ending ending = RunApart(
        [&] {
          // Never destroyed: rules that check the unloading do it themselves.
          rule.check(*new Subject(library));
        },
        options.seconds);
    const bool kept = ending.fault.empty();
    if (!kept) ++broken;
    if (options.report) {
      options.report(rule, ending.fault, ending.not_supported);
      continue;
    }
    if (ending.broke_off && !cause) cause = BrokenCounting(rules, library, options.seconds);
    const bool is_cause = cause && cause->starts_with(rule.FullName() + ":");
    if (ending.broke_off && !cause->empty() && !is_cause) {
      explained += (explained.empty() ? "" : ", ") + rule.FullName();
      continue;
    }
    if (kept && options.quiet) continue;
    output << (kept ? "kept    " : "BROKEN  ") << rule.FullName() << "  " << rule.text << "\n";
    if (!kept) output << "        " << ending.fault << "\n";
    if (!ending.not_supported.empty()) {
      output << "        not supported: " << ending.not_supported << "\n";
    }
    output.flush();
  }
  if (!explained.empty()) {
    output << "BROKEN  " << explained << "\n        broke off, likely because of " << *cause
           << "\n";
  }
  if (!options.quiet && !options.report) {
    output << selected.size() << " rules, "
           << (broken == 0 ? "all kept" : std::to_string(broken) + " broken") << "\n";
  }
  return broken == 0;
}

void ListRules(const Rules& rules, std::ostream& output) {
  std::string suite;
  for (const Rule& rule : rules) {
    if (rule.suite != suite) output << (suite.empty() ? "" : "\n") << rule.suite << "\n";
    suite = rule.suite;
    output << "  " << rule.name << "  " << rule.text << "\n";
  }
}

}  // namespace qel::check
