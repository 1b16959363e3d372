// Setting the component up inside a host process.
//
//   TVK::Component::Open(options, observer);
//   EventManager* manager = EventManager::GetInstance(handle);
//   manager->Initialize(TVK::Component::device_id_agent());
//   manager->InitAndStartEventMonitors();
//   ...
//   manager->Stop();
//   TVK::Component::Close();
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <variant>

#include "tvk/device_id_agent.h"
#include "tvk/export.h"
#include "tvk/records.h"

namespace TVK {

/// Where the component's things are; an empty path stands for the default place (docs/building.md lists them).
struct ComponentOptions {
  std::filesystem::path policy_file;  ///< The client policy is "client-policy.json" in the same folder.
  std::filesystem::path data_folder;  ///< Holds the store "records.db"; made, for the service's account alone.
  std::filesystem::path log_folder;   ///< Made likewise.
  std::filesystem::path sysroot;      ///< Linux: folder below which the machine's files are read.
};

enum class ComponentOutcome {
  kReady,
  kWrongConfiguration,  ///< A policy or a folder cannot be used.
  kFailed,              ///< The system refused something.
};

struct ComponentResult {
  ComponentOutcome outcome = ComponentOutcome::kReady;
  std::string message;  ///< UTF-8, one line a problem; empty when ready without a remark.
};

/// A record that the store has taken. Which of the three it is, its ids, dataset, item, time and values stand in
/// `content`; docs/records.md tells of each.
struct WrittenRecord {
  std::variant<ItemEvent, DatasetContext, DeviceContext> content;
  std::string json;  ///< The same as the store keeps it: one object of UTF-8 in one line, without a line feed.
};

/// Is told of each record after it was committed, in the order of the commits: it is durable by then, and a context is
/// told ahead of what names it. Called on the thread that wrote the record; must not block for long, nor call the
/// component. `record` is valid during the call alone. What it throws is logged, and ends that call alone.
using RecordObserver = std::function<void(const WrittenRecord& record)>;

enum class RemarkWeight {
  kProblem,  ///< Something is wrong: an error, in the system's log.
  kNews,     ///< What somebody changed is in force; a notice there.
};

/// Is told what became of a policy file that changed while the component runs: a line a problem, with the file and the
/// path in the document, and a line that says what is in force now; what the system did not give to the manager; that
/// a monitor ended with an error, or that a damaged store was set aside. UTF-8, without a line feed. Any thread; must
/// not block for long, nor call the component. What it throws is logged.
using RemarkObserver = std::function<void(RemarkWeight weight, const std::string& line)>;

/// Which policy a piece of news is about.
enum class PolicyNews {
  kTelemetry,
  kClient,  ///< Where the device belongs.
};

/// The services of the process's event manager. All operations belong to the host's control thread, but RereadPolicy,
/// OnUserLogon, OnSessionChange and TellPolicyChange, which any thread may call. No exception leaves any of them: what
/// fails is logged in "EventManager.log"; a message is empty where there is no memory for it.
class TVK_EXPORT Component {
 public:
  /// Opens folders, logs, policy and store, and starts to watch the policy files. One at a time in a process: kFailed
  /// while it is open already, which changes nothing; after Close, or when it was not ready, it may be opened again,
  /// also elsewhere. Unless it is ready, nothing is open and no thread runs afterwards.
  static ComponentResult Open(const ComponentOptions& options, RecordObserver observer = {},
                              RemarkObserver remarks = {});

  /// The component's own identity agent; null before Open. Valid until Close.
  static DeviceIdAgent* device_id_agent();

  /// Reads the policy files again, soon and on a thread of the component; what changed goes to the event manager. The
  /// files are watched anyway: this is for systems that cannot watch them, and for SIGHUP.
  static void RereadPolicy();

  /// Somebody may be logged on at this machine: that one's region is watched from now on. Once, when the service has
  /// begun to accept SERVICE_CONTROL_SESSIONCHANGE; nothing happens while nobody is logged on. Systems whose region is
  /// the same for everybody need call neither this nor OnSessionChange.
  static void OnUserLogon();

  /// The users of this machine changed: what a SERVICE_CONTROL_SESSIONCHANGE brings, its event type (WTS_SESSION_LOGON
  /// and so on; others than logon, logoff and the console's are ignored) and session. From now on the region of whoever
  /// uses the machine is watched, and of one who logs off nothing is held open. It starts programs and reads files: not
  /// to be called on the control handler's own thread, which the whole system waits for.
  static void OnSessionChange(unsigned long event_type, unsigned long session);

  /// What the client's own components tell each other of policies, told by one of them that lives in the host:
  /// `payload` is a JSON object with "devicePath", "deviceSubscription" (texts) and "isDevicePathChange" (boolean), all
  /// optional; of any other text none of them counts. The manager looks at the policy in force, and follows it, on its
  /// own thread; a policy file that changed is followed without being told of. False while nothing is open. Any thread.
  static bool TellPolicyChange(PolicyNews news, const std::wstring& payload);

  /// Stops the manager, if it was not, and ends every thread of the component; what device_id_agent and GetInstance
  /// gave is no longer valid. Nothing happens when nothing is open. Not beside another call into the component or its
  /// manager, and not from an observer.
  ///
  /// A process may end without it: on Linux it is called as exit begins, which is therefore not to be called from an
  /// observer either; on Windows the system has ended all threads
  /// before a library can do anything. No record is lost either way that a monitor had written. Where the process is
  /// killed, or calls _exit, the same holds.
  static void Close();
};

}  // namespace TVK
