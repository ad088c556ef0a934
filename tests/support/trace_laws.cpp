#include "tests/support/trace_laws.h"

#include <rapidjson/document.h>

#include <utility>

using veltrano::Statistics;

namespace {

constexpr double kStart = 1'700'000'000;  // of the simulated wall clock

// The text between `before` and the last `after`; false unless `message` starts with `before`.
bool isPart(std::string_view message, std::string_view before, std::string_view after,
            std::string& part) {
  if (!message.starts_with(before)) return false;
  const auto end = message.rfind(after);
  part = message.substr(before.size(), end - before.size());
  return true;
}

}  // namespace

std::string TraceLaws::takeLog(std::string_view message) {
  std::string part;
  if (isPart(message, "Adding event of ", " to current ", part)) {
    submitted_.push_back(part);
  } else if (isPart(message, "Added event and now have ", " events", part)) {
    if (submitted_.empty()) return "an event was recorded that nobody tracked";
    waiting_.push_back(std::move(submitted_.front()));
    submitted_.pop_front();
    if (part != std::to_string(waiting_.size())) return "the log counts " + part + " events";
  } else if (message.ends_with(" over capacity, trimming")) {
    waiting_.pop_front();
    ++counts.droppedByTrimming;
  } else if (message == "Clearing the queue") {
    counts.*(status_ == "200"   ? &Statistics::delivered
             : status_ == "400" ? &Statistics::droppedAsRefused
                                : &Statistics::droppedAsNotEncodable) += waiting_.size();
    waiting_.clear();
  } else if (isPart(message, "Got response: ", "", part)) {
    status_ = part;
  } else if (message.starts_with("Got the response from endpoint.")) {
    if (isInFlight_)
      ++(counts.*(status_.empty()    ? &Statistics::uploadsFailedInTransport
                  : status_ == "200" ? &Statistics::uploadsSucceeded
                                     : &Statistics::uploadsFailedByStatus));
    isInFlight_ = hasScheduled_ = false;
    const bool isDropped = std::exchange(isDropped_, false);
    if (isDropped && status_ != "200" && status_ != "400") waiting_.clear();
  } else if (message.starts_with("Setting collecting to ")) {
    isCollecting_ = message.ends_with("true");
    if (isCollecting_) return {};
    submitted_.clear();
    isInFlight_ ? void(isDropped_ = true) : waiting_.clear();
  } else if (message.starts_with("Scheduling a flush ")) {
    hasScheduled_ = true;
  } else if (message == "App becoming active!" || message == "App entered background!") {
    isRunning_ = message == "App becoming active!";
  } else if (message == "Exiting completion block of Endpoint request") {
    status_.clear();
    if (isRunning_ && isCollecting_ && !hasScheduled_) return "an outcome schedules no flush";
  }
  return {};
}

std::string TraceLaws::take(std::string_view line) {
  rapidjson::Document event;
  event.Parse<rapidjson::kParseFullPrecisionFlag>(line.data(), line.size());
  if (event.HasParseError()) return "no JSON";
  if (event.HasMember("log")) {
    const std::string_view text(event["log"].GetString(), event["log"].GetStringLength());
    return takeLog(text.substr(text.find(" | ") + 3));
  }
  if (!event.HasMember("post")) return {};
  if (!isCollecting_) return "a post without consent";
  const bool isUpload = event["post"]["body"].IsArray();
  ++(isUpload ? counts.uploadsAttempted : counts.heartbeatsSent);
  if (!isUpload) return {};
  if (std::exchange(isInFlight_, true)) return "two uploads at a time";
  const auto batch = event["post"]["body"].GetArray();
  if (batch.Size() != waiting_.size())
    return std::to_string(waiting_.size()) + " events wait, and the batch has others";
  for (std::size_t i = 0; i < waiting_.size(); ++i) {
    const auto& sent = batch[static_cast<rapidjson::SizeType>(i)];
    const std::string_view name(sent["event"].GetString(), sent["event"].GetStringLength());
    if (name != waiting_[i]) return "not in order: " + std::string(name);
    const auto& time = sent["properties"]["time"];
    if (!mayJump && time.GetDouble() > (kStart + event["at"].GetDouble()) * 1000 + 1)
      return "an event of the future";
  }
  return {};
}
