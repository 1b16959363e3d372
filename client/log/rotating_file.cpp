#include "client/log/rotating_file.h"

#include <stdexcept>
#include <system_error>

namespace TVK {

RotatingFile::RotatingFile(std::filesystem::path file, std::uint64_t limit, int older)
    : file_(std::move(file)), limit_(limit), older_(older) {
  Open();
}

void RotatingFile::Write(const std::string& line) {
  if (open_ == nullptr) Open();
  if (size_ > 0 && size_ + line.size() > limit_) Rotate();
  if (const std::string problem = open_->Append(line); !problem.empty()) throw std::runtime_error(problem);
  size_ += line.size();
}

void RotatingFile::Open() {
  std::string problem;
  open_ = platform::AppendFile::Open(file_, problem);
  if (open_ == nullptr) throw std::runtime_error(problem);
  size_ = open_->Size();
}

void RotatingFile::Rotate() {
  open_ = nullptr;
  std::error_code error;
  for (int number = older_; number > 1; --number)
    std::filesystem::rename(Name(number - 1), Name(number), error);  // not all of them exist
  std::filesystem::rename(file_, Name(1), error);
  // Bounded before complete: a file that cannot be renamed, since somebody holds it, is begun anew.
  if (error) std::filesystem::remove(file_, error);
  if (error) throw std::runtime_error(error.message());
  Open();
}

std::filesystem::path RotatingFile::Name(int number) const {
  std::filesystem::path name = file_;
  name.replace_extension();
  name += "." + std::to_string(number);
  name += file_.extension();
  return name;
}

}  // namespace TVK
