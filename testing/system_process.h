// What a test's child process needs of the operating system.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

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
