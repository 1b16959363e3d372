#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "platform/linux/unique_fd.h"
#include "testing/child_process.h"

namespace {

void Check(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

class LinuxProcess final : public SystemProcess {
 public:
  LinuxProcess(pid_t id, platform::UniqueFd output) : id_(id), output_(std::move(output)) {}
  // Only now is its number given back: a request can never reach another process.
  ~LinuxProcess() override { ::waitpid(id_, nullptr, 0); }

  std::size_t Read(std::span<char> buffer) override {
    ssize_t size = 0;
    do {
      size = ::read(output_.get(), buffer.data(), buffer.size());
    } while (size < 0 && errno == EINTR);
    return size > 0 ? static_cast<std::size_t>(size) : 0;
  }

  int Wait() override {
    siginfo_t end{};
    while (::waitid(P_PID, static_cast<id_t>(id_), &end, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    return end.si_code == CLD_EXITED ? end.si_status : 128 + end.si_status;
  }

  void Ask(ChildRequest request) override {
    constexpr int kSignals[] = {SIGKILL, SIGINT, SIGTERM, SIGHUP};  // in the order of ChildRequest
    ::kill(id_, kSignals[static_cast<std::size_t>(request)]);
  }

 private:
  const pid_t id_;
  const platform::UniqueFd output_;
};

}  // namespace

std::unique_ptr<SystemProcess> SystemProcess::Start(const std::filesystem::path& program,
                                                    const std::vector<std::string>& arguments) {
  int ends[2];
  Check(::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
  platform::UniqueFd output(ends[0]);
  const platform::UniqueFd input(ends[1]);
  std::vector<std::string> texts = {program.string()};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  Check(::posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, input.get(), STDERR_FILENO);
  pid_t id = 0;
  const int error = ::posix_spawn(&id, program.c_str(), &actions, nullptr, pointers.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  Check(error, program.c_str());
  return std::make_unique<LinuxProcess>(id, std::move(output));
}

std::filesystem::path ProgramBeside(const std::string& name) {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}
