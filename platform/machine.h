// A computer, as the component asks for it: one door for each of its parts, each with a header of its own, which its
// callers include. Three kinds: the local Windows machine, the local or recorded Linux machine (both through local.h)
// and the scripted one (simulated/simulated_machine.h).
//
// The doors find things and hand out facts, bytes and texts; what they mean is decoded by portable code above.
#pragma once

#include <memory>

namespace platform {

class Batteries;
class Drives;
class EventLog;
class Firmware;
class Memory;
class Power;
class PowerManager;
class Processors;
class Region;
class Settings;
class SystemEvents;
class SystemFacts;
class Volumes;

/// None is null. Later ones may use earlier ones as long as they live.
struct MachineDoors {
  std::unique_ptr<Processors> processors;
  std::unique_ptr<Memory> memory;
  std::unique_ptr<Firmware> firmware;
  std::unique_ptr<EventLog> event_log;
  std::unique_ptr<SystemFacts> system;
  std::unique_ptr<Region> region;
  std::unique_ptr<Settings> settings;
  std::unique_ptr<Power> power;
  std::shared_ptr<Batteries> batteries;
  std::shared_ptr<PowerManager> power_manager;
  std::shared_ptr<Drives> drives;
  std::shared_ptr<Volumes> volumes;
  std::unique_ptr<SystemEvents> system_events;

  MachineDoors();
  MachineDoors(MachineDoors&&) noexcept;
  MachineDoors& operator=(MachineDoors&&) = delete;
  ~MachineDoors();
};

/// Owns the doors of one computer. Any thread.
class Machine {
 public:
  explicit Machine(MachineDoors doors) : doors_(std::move(doors)) {}
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  virtual ~Machine() = default;

  Processors& processors() const { return *doors_.processors; }
  Memory& memory() const { return *doors_.memory; }
  Firmware& firmware() const { return *doors_.firmware; }
  EventLog& event_log() const { return *doors_.event_log; }
  SystemFacts& system() const { return *doors_.system; }
  Region& region() const { return *doors_.region; }
  Settings& settings() const { return *doors_.settings; }
  Power& power() const { return *doors_.power; }
  Batteries& batteries() const { return *doors_.batteries; }
  PowerManager& power_manager() const { return *doors_.power_manager; }
  Drives& drives() const { return *doors_.drives; }
  Volumes& volumes() const { return *doors_.volumes; }
  SystemEvents& system_events() const { return *doors_.system_events; }

 private:
  const MachineDoors doors_;
};

}  // namespace platform
