#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "c_interface/handles.h"
#include "c_interface/selectors.h"
#include "veltrano/veltrano.h"

using namespace veltrano;
using namespace veltrano::internal;

namespace {

// Returns a result to a C caller.
struct Answer {
  veltrano_outcome operator()(const Done& done) const {
    if (returned != nullptr) *returned = makeHandle(done.returned);
    return VELTRANO_DONE;
  }
  veltrano_outcome operator()(NoSuchSelector) const { return VELTRANO_NO_SUCH_SELECTOR; }
  veltrano_outcome operator()(WrongNumberOfArguments wrong) const {
    if (detail != nullptr) *detail = wrong.expected;
    return VELTRANO_WRONG_NUMBER_OF_ARGUMENTS;
  }
  veltrano_outcome operator()(WrongTypeOfArgument wrong) const {
    if (detail != nullptr) *detail = wrong.index;
    return VELTRANO_WRONG_TYPE_OF_ARGUMENT;
  }

  veltrano_object** returned;
  std::size_t* detail;
};

}  // namespace

veltrano_outcome veltrano_send(const char* selector, veltrano_object* const* arguments,
                               size_t count, veltrano_object** returned, size_t* detail) {
  if (returned != nullptr) *returned = nullptr;
  return guarded(VELTRANO_OUT_OF_MEMORY, [&] {
    const Answer answer{returned, detail};
    // Checked before reading the arguments, which may be invalid otherwise.
    const auto expected = selector != nullptr ? argumentCount(selector) : std::nullopt;
    if (!expected) return answer(NoSuchSelector());
    if (count != *expected) return answer(WrongNumberOfArguments{*expected});
    std::vector<Object> objects(count);
    for (std::size_t i = 0; i < count && arguments != nullptr; ++i)
      objects[i] = objectOf(arguments[i]);
    return std::visit(answer, send(selector, objects));
  });
}

bool veltrano_responds(const char* selector) {
  return selector != nullptr && argumentCount(selector).has_value();
}

const char* veltrano_outcome_text(veltrano_outcome outcome) {
  switch (outcome) {
    case VELTRANO_DONE:
      return "done";
    case VELTRANO_NO_SUCH_SELECTOR:
      return "no such selector";
    case VELTRANO_WRONG_NUMBER_OF_ARGUMENTS:
      return "wrong number of arguments";
    case VELTRANO_WRONG_TYPE_OF_ARGUMENT:
      return "wrong type of argument";
    case VELTRANO_OUT_OF_MEMORY:
      return "out of memory";
  }
  return "unknown outcome";
}

bool veltrano_get_statistics(veltrano_statistics* statistics) {
  if (statistics == nullptr || statistics->size == 0) return false;
  return guarded(false, [&] {
    const Statistics now = Veltrano::shared().statistics();
    const veltrano_statistics counts = {
        .size = statistics->size,
        .recorded = now.recorded,
        .waiting = now.waiting,
        .in_flight = now.inFlight,
        .delivered = now.delivered,
        .dropped_by_trimming = now.droppedByTrimming,
        .dropped_as_refused = now.droppedAsRefused,
        .dropped_as_not_encodable = now.droppedAsNotEncodable,
        .dropped_for_memory = now.droppedForMemory,
        .uploads_attempted = now.uploadsAttempted,
        .uploads_succeeded = now.uploadsSucceeded,
        .uploads_failed_in_transport = now.uploadsFailedInTransport,
        .uploads_failed_by_status = now.uploadsFailedByStatus,
        .uploads_failed_for_memory = now.uploadsFailedForMemory,
        .heartbeats_sent = now.heartbeatsSent,
        .heartbeats_failed = now.heartbeatsFailed,
    };
    // A host built with an older header has room for fewer fields.
    std::memcpy(statistics, &counts, std::min(statistics->size, sizeof counts));
    return true;
  });
}

size_t veltrano_status(char* buffer, size_t size) {
  return guarded(std::size_t{0}, [&] {
    const std::string text = Veltrano::status();
    if (size > 0) buffer[text.copy(buffer, size - 1)] = '\0';
    return text.size();
  });
}
