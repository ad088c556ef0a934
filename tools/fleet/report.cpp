#include "tools/fleet/report.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <ostream>
#include <string>

namespace fleet {

namespace {

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...) {
  std::array<char, 256> buffer{};
  std::va_list arguments;
  va_start(arguments, pattern);
  std::vsnprintf(buffer.data(), buffer.size(), pattern, arguments);
  va_end(arguments);
  return buffer.data();
}

std::uint64_t both(const Interval& interval, std::uint64_t Requests::*part) {
  return interval.requests[kTrack].*part + interval.requests[kHeartbeat].*part;
}

}  // namespace

void writeTable(std::ostream& output, const Scenario& scenario, const Outcome& outcome) {
  const Interval total = outcome.measurements.total();
  const double length = seconds(scenario.length);
  const Usage& usage = scenario.usage;
  const HostOptions& host = scenario.host;
  output << format("%d applications for %s from %s on, seed %llu\n", scenario.applications,
                   text(scenario.length).c_str(), text(scenario.startsAt).c_str(),
                   static_cast<unsigned long long>(scenario.seed))
         << format(
                "usage     %g sessions a day of %s, %g events a minute, %g %% of the events in "
                "the background\n",
                usage.sessionsPerDay, text(usage.sessionLength).c_str(), usage.eventsPerMinute,
                100 * usage.backgroundShare)
         << format("server    %g requests/s, answers after %s; overloaded: %s\n", host.capacity,
                   text(host.latency).c_str(), text(host.overload).c_str());
  for (const Outage& outage : host.outages)
    output << format("outage    %s to %s: %s\n", text(outage.from).c_str(), text(outage.to).c_str(),
                     text(host.outage).c_str());
  if (host.backOff)
    output << format("back-off  heartbeats every %s while the load is above %g %%\n",
                     text(*host.backOff).c_str(), 100 * host.backOffAbove);

  // The rate in the busiest interval.
  const auto busiest = [&](const std::function<double(const Interval&)>& of) {
    double most = 0;
    for (const Interval& interval : outcome.measurements.intervals())
      most = std::max(most, of(interval));
    return most / seconds(outcome.measurements.resolution());
  };
  output << format("\n%-26s%14s%14s%16s\n", "", "average", "busiest", "in all")
         << format("%-26s%14s%14s\n", "", "a second",
                   text(outcome.measurements.resolution()).c_str());
  const auto row = [&](const char* name, const std::function<double(const Interval&)>& of) {
    output << format("%-26s%14.2f%14.2f%16.0f\n", name, of(total) / length, busiest(of), of(total));
  };
  row("requests to /track", [](const Interval& i) { return double(i.requests[kTrack].received); });
  row("requests to /heartbeat",
      [](const Interval& i) { return double(i.requests[kHeartbeat].received); });
  row("requests that failed", [](const Interval& i) {
    return double(both(i, &Requests::received) - both(i, &Requests::accepted));
  });
  row("bytes of bodies", [](const Interval& i) { return double(both(i, &Requests::bodyBytes)); });
  row("bytes with heads", [](const Interval& i) {
    return double(both(i, &Requests::bodyBytes) + both(i, &Requests::headBytes));
  });
  row("bytes of answers",
      [](const Interval& i) { return double(both(i, &Requests::answerBytes)); });
  row("connections opened", [](const Interval& i) { return double(i.opened); });
  row("events delivered", [](const Interval& i) { return double(i.deliveredEvents); });
  output << format("%-26s%44llu\n", "requests, busiest second",
                   static_cast<unsigned long long>(total.mostInASecond));

  const Statistics& end = total.atEnd;
  const auto count = [&](const char* name, std::uint64_t value) {
    output << format("%-26s%44llu\n", name, static_cast<unsigned long long>(value));
  };
  output << '\n';
  count("events of applications", outcome.tracked);
  count("\"Heartbeat Failed\" events", end.heartbeatsFailed + end.heartbeatsPutOff);
  count("recorded", end.recorded);
  count("  waiting", end.waiting);
  count("  in flight", end.inFlight);
  count("  delivered", end.delivered);
  count("  dropped, too many waited", end.droppedByTrimming);
  count("  dropped, status 400", end.droppedAsRefused);
  count("  dropped otherwise", end.dropped() - end.droppedByTrimming - end.droppedAsRefused);
  count("lost with their process", total.lostUntilEnd);
  count("read by the server", outcome.arrived);
  count("  of applications", outcome.arrived - outcome.heartbeatFailures);
  output << format(
                "\ndelay to delivery         median %.1f s, 90 %% %.1f s, 99 %% %.1f s, longest "
                "%.1f s\n",
                total.delays.median, total.delays.percentile90, total.delays.percentile99,
                total.delays.longest)
         << format("a connection              is open for %.0f s; %.0f are open at a time\n",
                   seconds(outcome.measurements.meanConnection()),
                   seconds(outcome.measurements.meanConnection()) * double(total.opened) / length)
         << "the counts " << (outcome.isBalanced ? "add up" : "DO NOT ADD UP") << '\n';
}

void writeCSV(std::ostream& output, const Scenario& scenario, const Outcome& outcome) {
  const Duration length = outcome.measurements.resolution();
  output << "start_s,length_s,in_outage,track_requests,track_accepted,track_bytes,"
            "heartbeat_requests,heartbeat_accepted,heartbeat_bytes,most_requests_in_a_second,"
            "delivered,"
            "delay_median_s,delay_90_s,delay_99_s,delay_longest_s,in_foreground,recorded,waiting,"
            "in_flight,delivered_in_all,dropped_by_trimming,dropped_as_refused,"
            "dropped_as_not_encodable,dropped_for_memory,uploads_put_off,heartbeats_sent,"
            "heartbeats_failed,heartbeats_put_off,head_bytes,answer_bytes,connections_opened,"
            "connections_open,lost\n";
  std::uint64_t open = 0;
  for (const Interval& interval : outcome.measurements.intervals()) {
    const auto number = [&](std::uint64_t value) { output << ',' << value; };
    const auto overlaps = [&](const Outage& outage) {
      return outage.from < interval.start + length && outage.to > interval.start;
    };
    output << format("%g,%g,%d", seconds(interval.start), seconds(length),
                     std::ranges::any_of(scenario.host.outages, overlaps));
    for (const Requests& requests : interval.requests) {
      number(requests.received);
      number(requests.accepted);
      number(requests.bodyBytes);
    }
    number(interval.mostInASecond);
    number(interval.deliveredEvents);
    const Delays& delays = interval.delays;
    for (const double delay :
         {delays.median, delays.percentile90, delays.percentile99, delays.longest})
      output << (interval.deliveredEvents > 0 ? format(",%.3f", delay) : ",");
    number(interval.inForegroundAtEnd);
    const Statistics& end = interval.atEnd;
    for (const std::uint64_t value :
         {end.recorded, end.waiting, end.inFlight, end.delivered, end.droppedByTrimming,
          end.droppedAsRefused, end.droppedAsNotEncodable, end.droppedForMemory, end.uploadsPutOff,
          end.heartbeatsSent, end.heartbeatsFailed, end.heartbeatsPutOff,
          both(interval, &Requests::headBytes), both(interval, &Requests::answerBytes),
          interval.opened, open += interval.opened - interval.closed, interval.lostUntilEnd})
      number(value);
    output << '\n';
  }
}

}  // namespace fleet
