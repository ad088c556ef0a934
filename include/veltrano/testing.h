// For a host's tests: runs the library in virtual time, without threads, sockets or files. The
// host's code stays unchanged: `PosixPlatform::install` gives it the world's platform and main run
// loop.
//
//     using namespace std::chrono_literals;
//     veltrano::testing::World world;
//     startApplication();  // the host's, with its PosixPlatform::install
//     buy({"ticket", "poster"});
//
//     world.advance(20s);  // takes milliseconds
//     const auto bought = world.delivered().only("Bought");
//     EXPECT_EQ(bought["items"], (veltrano::Array{"ticket", "poster"}));
//     EXPECT_TRUE(world.complaints().empty()) << world.complaints();
//
// Link `Veltrano::testing`, which links the library. It needs no test framework; GoogleTest, Catch2
// and doctest print what tests see, such as values and events, with `operator<<`. Of doctest,
// define DOCTEST_CONFIG_TREAT_CHAR_STAR_AS_STRING, or it prints literals as pointers. A lookup that
// finds nothing throws `Error`; its message names the test's line and says what exists.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "veltrano/statistics.h"
#include "veltrano/value.h"

namespace veltrano {

/// Compares values by what is sent: numbers by value, a Date by its ISO 8601 text, a URL by its
/// text, a Dictionary in any order. Elements that are never sent are ignored. Either side may be
/// anything that converts to HostValue.
bool operator==(const HostValue& left, const HostValue& right);
inline bool operator!=(const HostValue& left, const HostValue& right) {
  return !(left == right);
}

/// Prints a value as JSON.
std::ostream& operator<<(std::ostream& out, const HostValue& value);

/// Prints the other value types.
template <class T, std::enable_if_t<detail::isOneOf<T, SupportedParameterType, Array, Dictionary,
                                                    HostMap, Date, URL, Int64, NSNull>,
                                    int> = 0>
std::ostream& operator<<(std::ostream& out, const T& value) {
  return out << HostValue(value);
}

// GoogleTest prints containers element by element unless it finds these.
// NOLINTBEGIN(readability-identifier-naming): the name is GoogleTest's.
inline void PrintTo(const Array& value, std::ostream* out) {
  *out << value;
}
inline void PrintTo(const Dictionary& value, std::ostream* out) {
  *out << value;
}
inline void PrintTo(const HostMap& value, std::ostream* out) {
  *out << value;
}
// It would print a literal that is compared with a value as a pointer.
std::string FormatForComparisonFailureMessage(const char* text, const HostValue& other);
// NOLINTEND(readability-identifier-naming)

namespace testing {

/// Virtual time. The literals of `std::chrono` convert to it.
using Duration = std::chrono::microseconds;

/// The time since the world's start. Prints as seconds, which in C++17 a bare duration does not.
struct Time : Duration {
  constexpr Time(Duration sinceStart = Duration::zero()) : Duration(sinceStart) {}

  template <class T, std::enable_if_t<std::is_same_v<T, Time>, int> = 0>
  friend constexpr Time operator-(T left, T right) {
    return Duration(left) - Duration(right);
  }
};
std::ostream& operator<<(std::ostream& out, Time time);

/// A lookup that found nothing, or the misuse of a world.
struct Error : std::logic_error {
  using std::logic_error::logic_error;
};

/// The layer that a property comes from. Among layers with the same key, the last one here wins.
class Origin {  // no enumeration, which doctest would print as a number
 public:
  static const Origin automatic;        // set by the library for each event, such as "time"
  static const Origin defaultProperty;  // describes the device or the application, such as "$os"
  static const Origin superProperty;  // set by the host for every event: `setSuperProperties`, ...
  static const Origin event;          // passed to `track`

  friend bool operator==(Origin left, Origin right) { return left.name_ == right.name_; }
  friend bool operator!=(Origin left, Origin right) { return !(left == right); }
  friend std::ostream& operator<<(std::ostream& out, Origin origin) { return out << origin.name_; }

 private:
  explicit constexpr Origin(std::string_view name) : name_(name) {}

  std::string_view name_;
};
inline constexpr Origin Origin::automatic{"automatic"};
inline constexpr Origin Origin::defaultProperty{"defaultProperty"};
inline constexpr Origin Origin::superProperty{"superProperty"};
inline constexpr Origin Origin::event{"event"};

/// A place in a list. Remembers its line for the message of `Error`.
struct Index {
  template <class T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
  Index(T index, const char* itsFile = __builtin_FILE(), int itsLine = __builtin_LINE())
      : value(static_cast<std::size_t>(index)), file(itsFile), line(itsLine) {}

  std::size_t value;
  const char* file;
  int line;  // 0: unknown
};

/// A read-only list, in order of occurrence.
template <class T>
class List {
 public:
  using value_type = T;
  using const_iterator = typename std::vector<T>::const_iterator;

  List() = default;
  explicit List(std::vector<T> items, std::string what = " items")
      : items_(std::move(items)), what_(std::move(what)) {}

  const_iterator begin() const { return items_.begin(); }
  const_iterator end() const { return items_.end(); }
  std::size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }

  /// Throws `Error` if out of range. On a temporary list, returns a copy.
  const T& operator[](const Index& index) const&;
  T operator[](const Index& index) && { return std::as_const(*this)[index]; }
  const T& front(const Index& first = 0) const& { return (*this)[first]; }
  T front(const Index& first = 0) && { return std::as_const(*this)[first]; }
  const T& back(const Index& any = 0) const& { return (*this)[last(any)]; }
  T back(const Index& any = 0) && { return std::as_const(*this)[last(any)]; }

 private:
  friend class Events;
  Index last(const Index& any) const { return {empty() ? 0 : size() - 1, any.file, any.line}; }

  std::vector<T> items_;
  std::string what_;  // the items, for the message of `Error`
};

/// Prints one item per line.
template <class T>
std::ostream& operator<<(std::ostream& out, const List<T>& list) {
  if (list.empty()) return out << "none";
  for (const T& item : list) out << "\n  " << item;
  return out;
}

/// A key, or the keys of nested maps joined with dots, such as "extra_json.campaign"; an item of a
/// list goes by its index, as in "items.0.name". Remembers its line for the message of `Error`.
struct Path {
  template <class T, std::enable_if_t<std::is_convertible_v<const T&, std::string_view>, int> = 0>
  Path(const T& path, const char* itsFile = __builtin_FILE(), int itsLine = __builtin_LINE())
      : text(path), file(itsFile), line(itsLine) {}

  std::string_view text;
  const char* file;
  int line;  // 0: unknown
};

/// Named values, as the collection host received them.
class Properties {
 public:
  Properties() = default;
  explicit Properties(HostMap values) : values_(std::move(values)) {}

  /// The value at `path`. Throws `Error` if there is none.
  HostValue operator[](const Path& path) const;
  bool has(std::string_view path) const;
  HostMap values() const { return values_; }

 protected:
  ~Properties() = default;
  Properties(const Properties&) = default;
  Properties(Properties&&) = default;
  Properties& operator=(const Properties&) = default;
  Properties& operator=(Properties&&) = default;

 private:
  HostMap values_;
};

/// An event that the collection host accepted.
class Event : public Properties {
 public:
  using Origins = std::map<std::string, Origin, std::less<>>;

  Event(std::string name, HostMap values, Origins origins, Duration recordedAt);

  const std::string& name() const { return name_; }

  /// When it joined the queue.
  Time recordedAt() const { return recordedAt_; }

  /// The layer that the property comes from. For an entry of "extra_json", pass "extra_json.KEY".
  /// Throws `Error` if there is no such property.
  Origin origin(const Path& path) const;

 private:
  std::string name_;
  Origins origins_;  // of properties that are not automatic
  Duration recordedAt_;
};
std::ostream& operator<<(std::ostream& out, const Event& event);

/// Events, in the order of recording.
class Events : public List<Event> {
 public:
  Events() : Events(std::vector<Event>()) {}

  /// `waiting` names events that have not been delivered yet, for the message of `Error`.
  explicit Events(std::vector<Event> events, const std::vector<std::string>& waiting = {});

  /// The events with this name; may be empty.
  Events named(std::string_view name) const;

  /// The events that have at least these properties. Keys are paths, as of `operator[]`.
  Events with(const HostMap& properties) const;

  /// The only event with this name. Throws `Error` if there is none, or more than one.
  Event only(std::string_view name, const char* file = __builtin_FILE(),
             int line = __builtin_LINE()) const;

 private:
  // Messages name all events that these come from.
  Events(std::vector<Event> events, const Events& all) : List(std::move(events), all.what_) {}
};

/// A heartbeat that was sent, whatever the answer.
class Heartbeat : public Properties {
 public:
  Heartbeat(HostMap values, Duration at) : Properties(std::move(values)), at_(at) {}

  std::string sessionId() const;
  std::string userId() const;
  Time at() const { return at_; }

 private:
  Duration at_;
};
std::ostream& operator<<(std::ostream& out, const Heartbeat& heartbeat);

/// A request that the library posted. Worlds do not retry: one request stands for all the attempts
/// that it would take in production. One that is put off does not arrive here: worlds let a failing
/// collection host rest by the rules of production, without the jitter. A 503 with "Retry-After"
/// therefore fails and begins that rest, where production waits in the request if the time is short
/// enough.
struct Request {
  std::string path;  // "/track" or "/heartbeat"
  std::map<std::string, std::string> query;
  std::map<std::string, std::string> headers;  // include the session token, if any
  std::string body;                            // the JSON text
  Time at;
};
std::ostream& operator<<(std::ostream& out, const Request& request);

/// The answer to a request.
struct Answer {
  int status = 200;
  std::optional<std::string> body = std::nullopt;
  Duration latency{0};  // if longer than 30 s, the request fails after 30 s, as in production
  bool isTransportError = false;  // no answer arrives; status, body and headers are ignored
  std::map<std::string, std::string> headers = {};    // the library reads "Retry-After"
  std::string reason = "Couldn't connect to server";  // of the transport error
};

/// Answers posts to one path: all of them, or a limited number.
class Rule {
 public:
  using Function = std::function<Answer(const Request&)>;

  explicit Rule(Function answer) : answer_(std::move(answer)) {}

  /// Limits the rule to one post, or to `count`. Without a limit it is permanent.
  Rule& once() { return times(1); }
  Rule& times(std::size_t count) { return left_ = count, *this; }

  /// Sets the latency; overrides that of the answer.
  Rule& after(Duration latency) { return latency_ = latency, *this; }

 private:
  friend class Network;

  Function answer_;
  std::optional<std::size_t> left_;
  std::optional<Duration> latency_;
};

/// The collection host at one path. Limited rules apply first, in the order in which they were
/// added; then the latest permanent rule does. Without a rule, posts are answered at once with
/// status 200.
class Network {
 public:
  /// Throws `Error` if the status is not between 0 and 999.
  Rule& answer(int status, std::optional<std::string> body = std::nullopt,
               std::map<std::string, std::string> headers = {});
  Rule& answer(Answer answer);

  /// Calls `answer` for each post, on the main thread. If it throws or its status is not between 0
  /// and 999, the post fails in transport, and a complaint says so.
  Rule& answer(Rule::Function answer) { return rules_.emplace_back(std::move(answer)); }

  /// A transport error: no answer arrives.
  Rule& fail();

  Network() = default;
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

 private:
  friend class World;
  std::optional<Answer> answerTo(const Request& request);

  std::deque<Rule> rules_;
};

/// Problems that a test should not miss, one sentence each.
using Complaints = List<std::string>;

/// Replaces the process's library with a new one in virtual time, as long as the world lives. A
/// process can have any number of worlds, one at a time.
///
/// The thread that creates a world is its main thread; only that thread may call its members. The
/// library itself stays thread-safe. Its work queue, completions, timers and functions posted to
/// the main run loop run on the main thread, while `advance` or the main run loop runs.
///
/// The wall clock starts at 2023-11-14 22:13:20 UTC, and identifiers are the same in every run.
/// Until the host installs a platform, the device has default settings. `PosixPlatform::install`
/// applies its options, but starts nothing and uses no file except `infoPropertyListFile`; a
/// complaint names the first file that production would refuse. Without a `logSink`, diagnostic
/// lines are dropped. `onTransfer` receives each answer as the first attempt; its bytes are those
/// of the bodies. The installed platform is valid as long as the process, and a no-op outside the
/// worlds that it was installed in.
///
/// Its `shutDown` works as in production, with a deadline in virtual time: the world advances until
/// everything is answered, and the library is inert afterwards. Only functions of the main run loop
/// go on. On another thread, `shutDown` waits for the main thread to advance the world; if that
/// does not happen by a second after the deadline, in real time, it returns false, and a complaint
/// says so. The library then shuts down when the world next advances.
///
/// The main run loop's `run` advances the world until `stop`, for a virtual day at most. Its
/// `fileDescriptor` is -1. Hosts take deadlines, of `runUntil` and of `shutDown`, from the real
/// clock: the time left is rounded up to 0.01 s, so that runs repeat, and is a day at most.
///
/// In a forked child a world is inert, as the library is.
///
/// Warning: a heartbeat that is started on another thread is never sent; a complaint says so.
class World {
 public:
  /// Throws `Error` if there is a world already.
  World();

  /// Drops what is pending and restores the process's own library.
  ///
  /// Warning: no other thread may still be calling the library, and neither may the world be
  /// running: destroy it in no callback or rule.
  ~World();

  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// Advances by `time` and runs everything that is due until then, inclusive. What the test does
  /// next happens a microsecond later. Throws `Error` if `time` is negative or over a hundred
  /// years, on another thread, in a callback and after `end`.
  void advance(Duration time);

  /// Virtual time since the world's start: a microsecond after the latest `advance`, such as
  /// 20.000001 s after `advance(20s)`.
  Time now() const;

  /// Moves the wall clock forward or back, by 1e12 s at most. The monotonic clock does not change.
  void jumpClock(Duration distance);

  /// The collection host at `path`: "/track" or "/heartbeat"; throws `Error` for any other. Valid
  /// as long as the world.
  Network& network(std::string_view path);

  /// The events that the collection host accepted.
  Events delivered() const;

  /// The number of events that are waiting or in flight. Events join the queue in `advance`: those
  /// tracked since do not count yet.
  std::size_t waiting() const;

  List<Heartbeat> heartbeats() const;
  List<Request> requests() const;
  Statistics statistics() const;

  /// Problems that would otherwise go unnoticed: values left out because events cannot hold them
  /// (absent ones excepted) or because they nest too deep, numbers sent as null, events that were
  /// dropped and why, or tracked while nothing is collected, calls from C or Objective-C that did
  /// nothing because an argument is missing or has the wrong type, or nothing has that selector, a
  /// platform that is refused or installed too late or twice, a file that is missing, a callback or
  /// rule that threw or raised, a completion that is never called, a heartbeat that is never sent,
  /// a run that does not end. After `end`, also events that were still pending.
  Complaints complaints() const;

  /// Lifecycle changes, with their notifications. `enterBackground` first makes the application
  /// inactive; `enterForeground` finally makes it active.
  void enterBackground();
  void enterForeground();
  void resignActive();
  void becomeActive();

  /// Change the device; see `PosixPlatform` for the values. Changes of an orientation post their
  /// notification.
  void setInterfaceOrientation(int orientation);
  void setDeviceOrientation(int orientation);
  void setScreenSize(double width, double height);
  void setModel(std::string model);  // sent as "$model"; call it before the first event
  void setCarrierName(std::optional<std::string> name);
  void setWiFi(bool isConnected);  // connected, a rest that began with a transport error ends
  void setTrackingAuthorizationStatus(std::uint64_t status);
  void setAdvertisingIdentifier(const std::string& identifier);

  /// Whether `advance` runs the main run loop; true at first. Pass false to simulate a host that
  /// forgets to: its heartbeats are missing, and so is what other threads report, until it runs the
  /// loop itself.
  void setRunsMainLoop(bool runs);

  /// What the library has stored, as production keeps it in `userDefaultsFile`. Passed to the next
  /// world before its first heartbeat, this makes it the application's next launch.
  std::map<std::string, double> settings() const;
  void setSettings(const std::map<std::string, double>& settings);

  /// Everything that happened so far, as a scenario that `scripts/replay` plays: a bug report in
  /// one file. It contains the answers that were given, not the rules. It ends with a shutdown.
  ///
  /// A scenario contains no functions. It repeats what a completion did a microsecond later, and
  /// concurrent calls of several threads in one of the possible orders. If two posts to one path at
  /// the same instant were answered differently, both get the second answer. A replay withholds no
  /// properties and runs the main run loop; it sends heartbeats more often than every 0.1 s if
  /// "back_off_seconds" is less, which a world does not.
  ///
  /// If the environment variable VELTRANO_TRACES names a directory, each world that ends writes its
  /// trace there, to "PROCESS-N.jsonl". "PROCESS-N.posts" gets its requests, as lines that
  /// replaying the trace prints.
  std::string trace() const;
  void writeTrace(const std::string& file) const;

  /// Compares every event that is recorded from now on with the tracking plan in `file`: what is
  /// not planned, missing or wrong becomes a complaint, once for each property and reason. Throws
  /// `Error` with the plan's faults.
  ///
  /// If the environment variable VELTRANO_PLAN_COVERAGE names a directory, the world notes there,
  /// at its end, what it has seen of the plan; `veltrano-plan coverage` sums that up. Throws
  /// `Error` if it cannot write there.
  void usePlan(const std::string& file);

  /// Ends the world, as its destructor does. What it has seen stays available. Throws `Error` in a
  /// callback and in a rule.
  void end();

 private:
  class Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

namespace detail {
[[noreturn]] void throwNoSuchItem(const Index& index, std::size_t size, const std::string& what);
}  // namespace detail

template <class T>
const T& List<T>::operator[](const Index& index) const& {
  if (index.value >= size()) detail::throwNoSuchItem(index, size(), what_);
  return items_[index.value];
}

}  // namespace testing
}  // namespace veltrano
