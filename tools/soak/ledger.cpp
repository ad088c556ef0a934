#include "tools/soak/ledger.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <charconv>
#include <fstream>

#include "platform/endpoint_path.h"

namespace soak {

using veltrano::internal::EndpointPath;
using veltrano::internal::endpointPath;

namespace {

thread_local bool isReplacing = false;

// How much later the collector may record a request that its sender has given up on.
constexpr std::chrono::seconds kMaxDelay{5};

bool follows(std::string_view start, std::string_view text, std::size_t& number) {
  if (!text.starts_with(start)) return false;
  text.remove_prefix(start.size());
  return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

bool isPutOff(int status) {
  return status == 502 || status == 503 || status == 504;
}

}  // namespace

Ledger::Ledger() {
  // Reserved, because the run's memory is measured and growth would show.
  fates_.reserve(std::size_t{1} << 22);
  uploads_.reserve(std::size_t{1} << 17);
}

bool Ledger::isReplacingFlush() {
  return isReplacing;
}

void Ledger::takeLogLine(std::string_view line) {
  const auto separator = line.find("| ");
  const auto text = separator == line.npos ? line : line.substr(separator + 2);
  isReplacing = text == "Canceling scheduled flush!";

  const std::lock_guard lock(mutex_);
  std::size_t number = 0;
  if (follows("Added event and now have ", text, number)) {
    fates_.push_back(Fate::waiting);
    if (number != fates_.size() - removed_) ++miscounted_;
  } else if (text.ends_with(" over capacity, trimming")) {
    fates_[removed_++] = Fate::trimmed;
  } else if (text == "Sending to the Corvane Endpoint") {
    uploads_.push_back({removed_, fates_.size(), Clock::now(), Clock::time_point::max()});
    isUploading_ = true;
  } else if (follows("Got response: ", text, number)) {
    status_ = static_cast<int>(number);
  } else if (text.starts_with("Got the response from endpoint.") && isUploading_) {
    isUploading_ = false;  // was false if the flush found nothing to upload
    Upload& upload = uploads_.back();
    upload.finished = Clock::now();
    upload.isDelivered = text.ends_with("true");
    if (!upload.isDelivered) return;
    std::fill(fates_.begin() + static_cast<std::ptrdiff_t>(removed_), fates_.end(),
              status_ == 400 ? Fate::refused : Fate::delivered);
    removed_ = fates_.size();
  } else if (text.starts_with("Adding event of Heartbeat Failed ")) {
    ++own_;
  }
}

bool Ledger::isSettled() {
  const std::lock_guard lock(mutex_);
  return removed_ == fates_.size();
}

Ledger::Result Ledger::check(const std::vector<std::filesystem::path>& records,
                             const std::vector<std::size_t>& tracked) {
  const std::lock_guard lock(mutex_);
  Result result;
  const auto violate = [&](const char* what, std::size_t count) {
    if (count > 0) result.violations[what] += count;
  };
  result.tracked = result.failedHeartbeats = own_;
  for (const std::size_t ofThread : tracked) result.tracked += ofThread;
  violate("tracked and not recorded", std::max(result.tracked, fates_.size()) - fates_.size());
  violate("recorded and not tracked", std::max(result.tracked, fates_.size()) - result.tracked);
  violate("miscounted in the log", miscounted_);

  arrived_.assign(fates_.size(), {});
  for (const auto& record : records) checkRecord(record, result);

  std::vector<std::size_t> next(tracked.size(), 0);
  for (std::size_t place = 0; place < fates_.size(); ++place) {
    const Fate fate = fates_[place];
    result.delivered += fate == Fate::delivered;
    result.trimmed += fate == Fate::trimmed;
    result.refused += fate == Fate::refused;
    violate("still waiting", fate == Fate::waiting);
    const Arrival& event = arrived_[place];
    violate("lost", fate == Fate::delivered && event.thread == kUnknown);
    if (event.thread < 0) continue;
    const auto thread = static_cast<std::size_t>(event.thread);
    if (thread >= tracked.size() || event.number >= tracked[thread]) {
      violate("invented", 1);
    } else {
      violate("reordered", event.number < next[thread]);
      next[thread] = event.number + 1;
    }
  }
  result.uploads = uploads_.size();
  for (const Upload& upload : uploads_) {
    const bool hasSucceeded = upload.isDelivered && fates_[upload.begin] == Fate::delivered;
    result.successes += hasSucceeded;
    violate("taken for delivered", hasSucceeded && upload.lastAnswer != 200);
  }
  return result;
}

void Ledger::checkRecord(const std::filesystem::path& record, Result& result) {
  std::ifstream file(record);
  for (std::string line; std::getline(file, line);) {
    if (file.eof()) break;  // killed while writing the line, so before answering
    rapidjson::Document request;
    request.Parse(line.data(), line.size());
    if (request.HasParseError()) {
      ++result.violations["unreadable in the record"];
    } else if (endpointPath(request["path"].GetString()) == EndpointPath::heartbeat) {
      ++result.heartbeats;
    } else {
      Batch batch;
      batch.received = Clock::time_point(std::chrono::milliseconds(request["received"].GetInt64()));
      batch.answer = request["answer"].GetInt();
      for (const auto& event : request["body"].GetArray()) {
        const auto& properties = event["properties"];
        if (event["event"] == "Heartbeat Failed")
          batch.events.push_back({kOwn, 0});
        else
          batch.events.push_back({properties["thread"].GetInt(), properties["number"].GetUint64()});
      }
      checkBatch(batch, result);
    }
  }
}

void Ledger::checkBatch(const Batch& batch, Result& result) {
  Upload* const upload = uploadOf(batch);
  if (upload == nullptr) {
    ++result.violations["arrived in no upload"];
    return;
  }
  // Within an upload, only requests answered with 502, 503 or 504 are retried.
  const bool isRetry = upload->lastAnswer >= 0;
  if (isRetry && !isPutOff(upload->lastAnswer))
    result.violations["repeated without a reason"] += batch.events.size();
  upload->lastAnswer = batch.answer;
  for (std::size_t i = 0; i < batch.events.size(); ++i) {
    Arrival& arrived = arrived_[upload->begin + i];
    result.repeated += arrived.thread != kUnknown;
    arrived = batch.events[i];
  }
}

// The upload that sent this batch: the first that was in progress when the batch arrived and that
// matches it. Known events keep their place, so an event that is sent again after it has left the
// queue matches no upload.
Ledger::Upload* Ledger::uploadOf(const Batch& batch) {
  constexpr std::chrono::milliseconds kPrecision{1};
  for (const auto delay : {Clock::duration::zero(), Clock::duration(kMaxDelay)}) {
    const auto begin = std::lower_bound(
        uploads_.begin(), uploads_.end(), batch.received - delay,
        [](const Upload& upload, Clock::time_point at) { return upload.finished < at; });
    for (auto upload = begin; upload != uploads_.end(); ++upload) {
      if (upload->sent > batch.received + kPrecision) break;
      if (contains(*upload, batch)) return &*upload;
    }
  }
  return nullptr;
}

bool Ledger::contains(const Upload& upload, const Batch& batch) const {
  if (upload.end - upload.begin != batch.events.size()) return false;
  for (std::size_t i = 0; i < batch.events.size(); ++i) {
    const Arrival& known = arrived_[upload.begin + i];
    const Arrival& event = batch.events[i];
    if (known.thread != kUnknown && (known.thread != event.thread || known.number != event.number))
      return false;
  }
  return true;
}

}  // namespace soak
