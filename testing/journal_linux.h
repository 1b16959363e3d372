// Journals that tests write: with systemd's own tool, as other machines' entries come.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

/// Adds to a journal, `file`, which is made with its folders when there is none.
class JournalWriter {
 public:
  /// Its first entry is logged `seconds` after 2025-12-31T23:00:00Z.
  explicit JournalWriter(std::filesystem::path file, std::uint64_t seconds = 0)
      : file_(std::move(file)), count_(seconds) {}

  /// One entry more, a second after the one before. `fields`: lines "NAME=value".
  void Add(const std::string& fields) {
    ++count_;
    text_ += "__REALTIME_TIMESTAMP=" + std::to_string(1'767'222'000'000'000 + (count_ - 1) * 1'000'000) +
             "\n__MONOTONIC_TIMESTAMP=" + std::to_string(count_ * 1'000'000) +
             "\n_BOOT_ID=0123456789abcdef0123456789abcdef\n" + fields + "\n\n";
  }

  /// Writes what was added since the last time.
  void Write() {
    std::filesystem::create_directories(file_.parent_path());
    const std::string command =
        "/lib/systemd/systemd-journal-remote --split-mode=none -o '" + file_.string() + "' - 2>/dev/null";
    std::FILE* const tool = ::popen(command.c_str(), "w");
    const bool taken = tool != nullptr && std::fwrite(text_.data(), 1, text_.size(), tool) == text_.size();
    if (tool == nullptr || ::pclose(tool) != 0 || !taken) throw std::runtime_error(command);
    text_.clear();
  }

 private:
  const std::filesystem::path file_;
  std::string text_;
  std::uint64_t count_;
};
