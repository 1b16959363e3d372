// The volumes of the machine: file systems of its own drives that are in use, as the system knows them. Nothing is read
// from a drive, so none is woken, and no right to one is needed. But where the file system of a stick's volume is not
// in use yet, Windows may have to look at it, and Windows' log, which has the errors, lies on the system's drive. Any
// thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

enum class VolumeRole {
  kSystem,     ///< Holds (a part of) the operating system, whatever it lies on.
  kRemovable,  ///< On what people plug in: a medium that can be taken out, a card, a drive behind USB.
  kData,       ///< Any other.
};

struct VolumeSpace {
  std::uint64_t bytes = 0;       ///< Of the file system, what it keeps back included: writes do not change it. Not 0.
  std::uint64_t free_bytes = 0;  ///< That programs without special rights can take; at most `bytes`.

  bool operator==(const VolumeSpace&) const = default;
};

/// What the system does not tell is absent.
struct Volume {
  /// Tells it from other volumes, the same over restarts: what the file system was named when it was made or, where
  /// that is not known, its device. Not empty. In clear: it leaves the client hashed only.
  std::string id = {};
  VolumeRole role = VolumeRole::kData;
  std::string file_system = {};           ///< In the system's words: "ext4", "NTFS". Empty: not told.
  std::optional<VolumeSpace> space = {};  ///< Of a recorded machine absent.
  bool read_only = false;                 ///< Nobody can write to it at present.
  std::optional<bool> encrypted = {};     ///< By the operating system, as a whole. Windows does not tell.
  /// That the file system found in itself: as many as it counted or, for NTFS, as the system's log has of them.
  std::optional<std::uint64_t> errors = {};

  bool operator==(const Volume&) const = default;
};

/// Held by shared_ptr, as Drives: a look at a file system whose drive hangs may come back after whoever asked has gone.
class Volumes : public std::enable_shared_from_this<Volumes> {
 public:
  Volumes() = default;
  Volumes(const Volumes&) = delete;
  Volumes& operator=(const Volumes&) = delete;
  virtual ~Volumes() = default;

  /// Each volume once, however often it is mounted; those without a place in the tree of files, of other machines, of
  /// optical drives, and what lies in memory or in a file, left out. Empty when the system tells of none. Touches no
  /// file system that may wait for another machine.
  virtual std::vector<Volume> List() = 0;
};

}  // namespace platform
