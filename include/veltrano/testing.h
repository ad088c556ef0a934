// For a host's tests: the library in a world of virtual time, without threads, sockets or files.
// The host's own code runs as it is: the platform that it installs is the world's, and so is its
// main run loop.
//
//     TEST(Checkout, ReportsWhatWasBought) {
//       veltrano::testing::World world;
//       startApplication();  // the host's, with its PosixPlatform::install
//       buy({"ticket", "poster"});
//
//       world.advance(20s);  // takes milliseconds
//       const auto bought = world.delivered().only("Bought");
//       EXPECT_EQ(bought["items"], (veltrano::Array{"ticket", "poster"}));
//       EXPECT_TRUE(world.complaints().empty()) << world.complaints();
//     }
//
// Link `Veltrano::testing`, which brings the library along. No test framework is needed;
// GoogleTest, Catch2 and doctest print everything here with `operator<<`. What is asked for and is
// not there throws `Error`, whose message says what is there.
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

/// Values are equal when they read the same where they are sent: numbers by what they count, a Date
/// as its ISO 8601 text, a URL as its text, a Dictionary in any order, and what is absent there not
/// at all. Anything that makes a HostValue can stand on either side.
bool operator==(const HostValue& left, const HostValue& right);
inline bool operator!=(const HostValue& left, const HostValue& right) {
  return !(left == right);
}

/// Prints a value as JSON.
std::ostream& operator<<(std::ostream& out, const HostValue& value);

/// Prints the other types of values.
template <class T, std::enable_if_t<detail::isOneOf<T, SupportedParameterType, Array, Dictionary,
                                                    HostMap, Date, URL, Int64, NSNull>,
                                    int> = 0>
std::ostream& operator<<(std::ostream& out, const T& value) {
  return out << HostValue(value);
}

namespace testing {

/// Virtual time. The literals of `std::chrono` convert to it.
using Duration = std::chrono::microseconds;

/// A test asks for something that is not there, or uses a world in a way that it cannot be used.
struct Error : std::logic_error {
  using std::logic_error::logic_error;
};

/// Where a property of an event comes from; of layers with the same key, the last one here counts.
enum class Origin {
  automatic,        // what the library knows of the moment, such as "time"
  defaultProperty,  // what it knows of the device and the application, such as "$os"
  superProperty,  // what the host has set for every event, by `setSuperProperties`, `setUserId` ...
  event           // what `track` was given
};
std::ostream& operator<<(std::ostream& out, Origin origin);

/// What happened, in order.
template <class T>
class List {
 public:
  using value_type = T;
  using const_iterator = typename std::vector<T>::const_iterator;

  List() = default;
  explicit List(std::vector<T> items) : items_(std::move(items)) {}

  const_iterator begin() const { return items_.begin(); }
  const_iterator end() const { return items_.end(); }
  std::size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }

  /// Throws `Error` when there is none. Of a list that goes away, a copy.
  const T& operator[](std::size_t index) const&;
  T operator[](std::size_t index) && { return std::as_const(*this)[index]; }
  const T& front() const& { return (*this)[0]; }
  T front() && { return std::as_const(*this).front(); }
  const T& back() const& { return (*this)[empty() ? 0 : size() - 1]; }
  T back() && { return std::as_const(*this).back(); }

 private:
  std::vector<T> items_;
};

/// Prints one a line.
template <class T>
std::ostream& operator<<(std::ostream& out, const List<T>& list) {
  if (list.empty()) return out << "none";
  for (const T& item : list) out << "\n  " << item;
  return out;
}

/// Named values that arrived at the collection host.
class Properties {
 public:
  Properties() = default;
  explicit Properties(HostMap values) : values_(std::move(values)) {}

  /// The value under `path`: a key, or keys of maps inside one another with dots between them, such
  /// as "extra_json.campaign". Throws `Error` when there is none.
  HostValue operator[](std::string_view path) const;
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

/// An event that the collection host has accepted.
class Event : public Properties {
 public:
  using Origins = std::map<std::string, Origin, std::less<>>;

  Event(std::string name, HostMap values, Origins origins, Duration recordedAt);

  const std::string& name() const { return name_; }

  /// When it joined the queue, since the start of the world.
  Duration recordedAt() const { return recordedAt_; }

  /// The layer that the property comes from; an entry of "extra_json" is asked for as
  /// "extra_json.KEY". Throws `Error` when there is none.
  Origin origin(std::string_view path) const;

 private:
  std::string name_;
  Origins origins_;  // of those that are not automatic
  Duration recordedAt_;
};
std::ostream& operator<<(std::ostream& out, const Event& event);

/// Events in the order in which they were recorded.
class Events : public List<Event> {
 public:
  using List::List;

  /// Those of this name, which may be none.
  Events named(std::string_view name) const;

  /// The one of this name. Throws `Error` when there is none, or more than one.
  Event only(std::string_view name) const;
};

/// A heartbeat that was sent, whatever was answered.
class Heartbeat : public Properties {
 public:
  Heartbeat(HostMap values, Duration at) : Properties(std::move(values)), at_(at) {}

  std::string sessionId() const;
  std::string userId() const;
  Duration at() const { return at_; }

 private:
  Duration at_;
};
std::ostream& operator<<(std::ostream& out, const Heartbeat& heartbeat);

/// What the library posted. In a world one request stands for one with all the retries that it
/// would take in production.
struct Request {
  std::string path;  // "/track" or "/heartbeat"
  std::map<std::string, std::string> query;
  std::map<std::string, std::string> headers;  // with the session token, if the host has one
  std::string body;                            // the JSON text
  Duration at{0};
};
std::ostream& operator<<(std::ostream& out, const Request& request);

/// What comes back.
struct Answer {
  int status = 200;
  std::optional<std::string> body = std::nullopt;
  Duration latency{0};
  bool isTransportError = false;  // nothing arrives; status and body do not count
};

/// How posts to one path are answered, for some or all of them.
class Rule {
 public:
  using Function = std::function<Answer(const Request&)>;

  explicit Rule(Function answer) : answer_(std::move(answer)) {}

  /// Counts for the next post alone, or for the next `count`. Without either, for good.
  Rule& once() { return times(1); }
  Rule& times(std::size_t count);

  /// The answer takes this long.
  Rule& after(Duration latency);

 private:
  friend class Network;

  Function answer_;
  std::optional<std::size_t> left_;
  std::optional<Duration> latency_;
};

/// The collection host at one path. Rules for a number of posts are used up first, in the order in
/// which they were made; then the latest rule for good counts. Without one, posts are answered at
/// once with status 200.
class Network {
 public:
  Rule& answer(int status, std::optional<std::string> body = std::nullopt);
  Rule& answer(Answer answer);

  /// `answer` is called at each post, on the world's thread. When it throws, that is a complaint,
  /// and the post fails in transport.
  Rule& answer(Rule::Function answer);

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

/// What a host should look at, one sentence each with its virtual time.
using Complaints = List<std::string>;

/// A library that nobody has used yet, in a world of virtual time, in the place of the process's
/// own for as long as the world lives. Any number of them in a process, one at a time.
///
/// The thread that makes a world is its main thread; its members are for that thread alone. The
/// library may be used from every thread, as always. What its work queue does, completions, timers
/// and what is handed to the main run loop run within `advance`, on the main thread.
///
/// The wall clock starts at 2023-11-14 22:13:20 UTC, and identifiers are the same in every run.
/// Until the host installs a platform, the device is one with settings of its own; `install` sets
/// what its options say, but starts nothing and opens no file except `infoPropertyListFile`;
/// without a `logSink`, diagnostic lines go nowhere. The platform is valid as long as the process,
/// and does nothing outside a world that it was installed in.
///
/// The main run loop has -1 as its `fileDescriptor`, and `run` runs the world until `stop`, at most
/// for a virtual day. Heartbeats that are started on another thread are not sent.
class World {
 public:
  /// Throws `Error` when there is a world already, and with a library of another release.
  World();

  /// Puts the process's own library back, when no other thread calls this one any more. What is
  /// pending is dropped.
  ~World();

  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// Lets everything happen that is due until `time` from now, that moment included, after what was
  /// asked of the library so far. What the test does next comes a microsecond later.
  void advance(Duration time);

  /// Since the start.
  Duration now() const;

  /// Sets the wall clock forward, or back. The monotonic one goes on.
  void jumpClock(Duration distance);

  /// How posts to `path` are answered: "/track", "/heartbeat". Valid as long as the world.
  Network& network(std::string_view path);

  /// The events that the collection host has accepted.
  Events delivered() const;

  /// How many events wait for an upload, or for the end of the one under way.
  std::size_t waiting() const;

  List<Heartbeat> heartbeats() const;
  List<Request> requests() const;
  Statistics statistics() const;

  /// What went wrong without anybody noticing: values that were left out because events cannot hold
  /// them (an absent value is no value, and no complaint), events that were dropped and why, a
  /// platform that was installed too late or twice, a rule's function that threw, a heartbeat that
  /// is never sent, a run that would not end. After `end`, also what was pending.
  Complaints complaints() const;

  /// The steps of the application's life as the system takes them, notifications included.
  /// Entering the background makes the application inactive first, entering the foreground makes it
  /// active at the end.
  void enterBackground();
  void enterForeground();
  void resignActive();
  void becomeActive();

  /// What the device and the application are from now on; see `PosixPlatform` for the values. The
  /// orientations are announced.
  void setInterfaceOrientation(int orientation);
  void setDeviceOrientation(int orientation);
  void setScreenSize(double width, double height);
  void setCarrierName(std::optional<std::string> name);
  void setWiFi(bool isConnected);
  void setTrackingAuthorizationStatus(std::uint64_t status);
  void setAdvertisingIdentifier(const std::string& identifier);

  /// What has been done so far, as the text of a scenario that `scripts/replay` plays to the same
  /// trace: a bug report in one file. Answers stand in it as they were given, whatever gave them.
  ///
  /// It holds no functions. What a completion does stands in it a microsecond later; what several
  /// threads do at once, in one of the possible orders; and of two answers to posts of one path at
  /// one instant, the second counts for both.
  ///
  /// When the variable VELTRANO_TRACES names a directory, each world writes its trace there as it
  /// ends, to "PROCESS-N.jsonl", and to "PROCESS-N.posts" what it posted, as lines of that trace.
  std::string trace() const;
  void writeTrace(const std::string& file) const;

  /// Ends the world as its destructor does. What has been seen can still be asked for.
  void end();

 private:
  class Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

namespace detail {
[[noreturn]] void throwNoSuchItem(std::size_t index, std::size_t size);
}

template <class T>
const T& List<T>::operator[](std::size_t index) const& {
  if (index >= size()) detail::throwNoSuchItem(index, size());
  return items_[index];
}

}  // namespace testing
}  // namespace veltrano
