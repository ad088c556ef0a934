#include <cmath>
#include <deque>
#include <exception>
#include <sstream>
#include <string>
#include <utility>

#include "veltrano/testing.h"
#include "veltrano/testing_c.h"

using namespace veltrano::testing;

struct veltrano_world {
  World world;
  const char* error = "";         // one of the texts
  std::string complaints;         // of this interface, one per line
  std::deque<std::string> texts;  // returned so far
};

namespace {

Duration durationOf(double seconds) {
  if (!(std::abs(seconds) <= 1e12)) throw Error("A time is over 1e12 s, or not a number.");
  return std::chrono::round<Duration>(std::chrono::duration<double>(seconds));
}

// Returns what `function` returns, or `otherwise` if it throws.
template <class Result, class Function>
Result guarded(veltrano_world* world, Result otherwise, Function function) {
  try {
    return function(world->world);
  } catch (const std::exception& exception) {
    world->error = world->texts.emplace_back(exception.what()).c_str();
    return otherwise;
  }
}

template <class Function>
bool guarded(veltrano_world* world, Function function) {
  return guarded(world, false, [&](World& it) { return function(it), true; });
}

// For calls that return nothing: what `function` throws becomes a complaint, too.
template <class Function>
void act(veltrano_world* world, Function function) {
  if (!guarded(world, function))
    guarded(world, [&](World&) { world->complaints.append(world->error) += '\n'; });
}

// Returns the text that `function` returns; null if it throws.
template <class Function>
const char* text(veltrano_world* world, Function function) {
  return guarded<const char*>(
      world, nullptr, [&](World& it) { return world->texts.emplace_back(function(it)).c_str(); });
}

template <class Value>
std::string printed(const Value& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

std::string_view view(const char* text) {
  return text != nullptr ? text : "";
}

void limit(Rule& rule, std::size_t times) {
  if (times > 0) rule.times(times);
}

}  // namespace

veltrano_world* veltrano_world_create() {
  try {
    return new veltrano_world;
  } catch (const std::exception&) {
    return nullptr;
  }
}

void veltrano_world_destroy(veltrano_world* world) {
  delete world;
}

const char* veltrano_world_error(const veltrano_world* world) {
  return world->error;
}

bool veltrano_world_advance(veltrano_world* world, double seconds) {
  return guarded(world, [&](World& it) { it.advance(durationOf(seconds)); });
}

void veltrano_world_jump_clock(veltrano_world* world, double seconds) {
  act(world, [&](World& it) { it.jumpClock(durationOf(seconds)); });
}

void veltrano_world_answer(veltrano_world* world, const char* path, int status, const char* body,
                           double latency, size_t times) {
  act(world, [&](World& it) {
    if (latency < 0) throw Error("A latency is negative.");
    Answer answer{status, std::nullopt, durationOf(latency)};
    if (body != nullptr) answer.body = body;
    limit(it.network(view(path)).answer(std::move(answer)), times);
  });
}

void veltrano_world_fail(veltrano_world* world, const char* path, size_t times) {
  act(world, [&](World& it) { limit(it.network(view(path)).fail(), times); });
}

void veltrano_world_answer_with_header(veltrano_world* world, const char* path, int status,
                                       const char* header, const char* value, size_t times) {
  act(world, [&](World& it) {
    const std::string name(view(header)), content(view(value));
    limit(it.network(view(path)).answer(status, std::nullopt, {{name, content}}), times);
  });
}

size_t veltrano_world_delivered(veltrano_world* world, const char* name) {
  return guarded(world, size_t{0}, [&](World& it) {
    return name != nullptr ? it.delivered().named(name).size() : it.delivered().size();
  });
}

const char* veltrano_world_property(veltrano_world* world, const char* name, size_t index,
                                    const char* path) {
  return text(world, [&](World& it) {
    return printed(it.delivered().named(view(name))[Index(index, "", 0)][Path(view(path), "", 0)]);
  });
}

const char* veltrano_world_origin(veltrano_world* world, const char* name, size_t index,
                                  const char* path) {
  return text(world, [&](World& it) {
    return printed(
        it.delivered().named(view(name))[Index(index, "", 0)].origin(Path(view(path), "", 0)));
  });
}

size_t veltrano_world_waiting(veltrano_world* world) {
  return guarded(world, size_t{0}, [](World& it) { return it.waiting(); });
}

size_t veltrano_world_heartbeats(veltrano_world* world) {
  return guarded(world, size_t{0}, [](World& it) { return it.heartbeats().size(); });
}

const char* veltrano_world_session_id(veltrano_world* world, size_t heartbeat) {
  return text(world,
              [&](World& it) { return it.heartbeats()[Index(heartbeat, "", 0)].sessionId(); });
}

const char* veltrano_world_heartbeat_property(veltrano_world* world, size_t heartbeat,
                                              const char* path) {
  return text(world, [&](World& it) {
    return printed(it.heartbeats()[Index(heartbeat, "", 0)][Path(view(path), "", 0)]);
  });
}

size_t veltrano_world_requests(veltrano_world* world) {
  return guarded(world, size_t{0}, [](World& it) { return it.requests().size(); });
}

const char* veltrano_world_request(veltrano_world* world, size_t request, const char* part) {
  return text(world, [&](World& it) {
    const Request found = it.requests()[Index(request, "", 0)];
    veltrano::HostMap parts{{"path", found.path}, {"body", found.body}};
    for (const auto& [name, value] : found.query) parts.set("query." + name, value);
    for (const auto& [name, value] : found.headers) parts.set("headers." + name, value);
    // A lookup, with the message that it has for what is missing.
    return *Heartbeat(std::move(parts), {})[Path(view(part), "", 0)].member()->getIf<std::string>();
  });
}

const char* veltrano_world_complaints(veltrano_world* world) {
  return text(world, [&](World& it) {
    std::string lines = world->complaints;
    for (const std::string& complaint : it.complaints()) lines += complaint + '\n';
    return lines;
  });
}

void veltrano_world_enter_background(veltrano_world* world) {
  act(world, [](World& it) { it.enterBackground(); });
}

void veltrano_world_enter_foreground(veltrano_world* world) {
  act(world, [](World& it) { it.enterForeground(); });
}

void veltrano_world_set_wifi(veltrano_world* world, bool connected) {
  act(world, [&](World& it) { it.setWiFi(connected); });
}

const char* veltrano_world_trace(veltrano_world* world) {
  return text(world, [](World& it) { return it.trace(); });
}

bool veltrano_world_use_plan(veltrano_world* world, const char* file) {
  return guarded(world, [&](World& it) { it.usePlan(std::string(view(file))); });
}

void veltrano_world_end(veltrano_world* world) {
  act(world, [](World& it) { it.end(); });
}
