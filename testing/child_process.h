// Another program, started and watched by a test.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "platform/runtime.h"

enum class ChildRequest {
  kKill,       ///< It ends at once and cannot do anything about it.
  kInterrupt,  ///< SIGINT. This and the following exist on Linux only; elsewhere they throw std::logic_error.
  kTerminate,  ///< SIGTERM
  kReload,     ///< SIGHUP
};

/// A running program and the end of its output.
class SystemProcess {
 public:
  /// Throws std::system_error.
  static std::unique_ptr<SystemProcess> Start(const std::filesystem::path& program,
                                              const std::vector<std::string>& arguments);
  SystemProcess() = default;
  SystemProcess(const SystemProcess&) = delete;
  SystemProcess& operator=(const SystemProcess&) = delete;
  /// The process must have ended.
  virtual ~SystemProcess() = default;

  /// Waits for output; how many bytes came, 0 once there will be none.
  virtual std::size_t Read(std::span<char> buffer) = 0;
  /// Waits for the end; see ChildProcess::WaitForEnd for the result.
  virtual int Wait() = 0;
  /// Any thread, also while another one waits.
  virtual void Ask(ChildRequest request) = 0;
};

/// The program `name` (without ".exe") in the folder of the running one, where a build puts all of them.
std::filesystem::path ProgramBeside(const std::string& name);

/// A running program with what it writes. The calls belong to one thread. It does not outlive the object: the
/// destructor kills it, and shows what it wrote when the test has failed. On Windows it also dies with the test;
/// elsewhere give it a way to end by itself.
class ChildProcess {
 public:
  /// `arguments` in UTF-8. Throws std::system_error when the program cannot be started.
  ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// The whole lines of its standard output and standard error so far, without line ends.
  std::vector<std::string> Lines() const;

  /// Waits until `state` holds; it is asked whenever the child wrote something, and often in between. False when it
  /// does not hold after `limit`, or when the child has ended.
  bool WaitFor(const std::function<bool()>& state, std::chrono::milliseconds limit);

  /// Waits for a line that holds `text`.
  bool WaitForLine(const std::string& text, std::chrono::milliseconds limit);

  /// Waits for the end; the exit code (128 + signal when a signal ended it), empty after `limit`. All lines are there.
  std::optional<int> WaitForEnd(std::chrono::milliseconds limit);

  /// What the process can be asked on this system; asking one that has ended does nothing.
  void Ask(ChildRequest request) { process_->Ask(request); }

 private:
  void ReadOutput();

  const std::unique_ptr<platform::Runtime> runtime_;
  const std::unique_ptr<platform::Event> news_;   ///< Something was written, or the child ended.
  const std::unique_ptr<platform::Event> ended_;  ///< Stays set.
  const std::unique_ptr<SystemProcess> process_;
  mutable std::mutex mutex_;  ///< Guards what follows.
  std::vector<std::string> lines_;
  int exit_code_ = 0;
  std::thread reader_;
};

/// Waits until `state` holds; false when it does not after `limit`. For what no child of the test's own does.
bool WaitForState(const std::function<bool()>& state, std::chrono::milliseconds limit);
