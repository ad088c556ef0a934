#include "platform/posix/http/network_thread.h"

#include <openssl/crypto.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/host_callback.h"
#include "platform/posix/http/name_lookup.h"
#include "platform/posix/http/urls_and_headers.h"
#include "platform/posix/system/background_thread.h"
#include "platform/posix/system/exit_gate.h"

namespace veltrano::internal {
namespace {

constexpr int kMaxUnfinished = 256;  // posts of an endpoint; later ones fail
constexpr std::chrono::minutes kAddressesLast{1};
// How long the end of a session waits for what is stuck.
constexpr std::chrono::milliseconds kGrace{250};

// After a failure of the system, instead of a busy loop.
constexpr std::chrono::milliseconds kPause{200};

std::string reasonOf(const TransferResult& result) {
  const bool isPlain = result.error == CURLE_OK || !result.reason.empty();
  return isPlain ? result.reason : curl_easy_strerror(result.error);
}

TransportError transportError(const TransferResult& result) noexcept {
  try {
    return {reasonOf(result), result.wasPutOff};
  } catch (...) {
    return {"out of memory", result.wasPutOff};  // short enough not to allocate
  }
}

void callBack(const URLSessionCallback& callback, TransferResult& result) {
  std::optional<std::string> data;
  std::optional<URLResponse> response;
  std::optional<TransportError> error;
  if (result.attempt.httpStatusCode) response = URLResponse{result.attempt.httpStatusCode};
  if (result.error == CURLE_OK) {
    data = std::move(result.body);
  } else if (!response || result.error != CURLE_FILESIZE_EXCEEDED) {
    error = transportError(result);
  }
  dropExceptions([&] { callback(std::move(data), response, std::move(error)); });
}

Duration sinceEpoch(NetworkThread::Clock::time_point time) {
  return std::chrono::duration_cast<Duration>(time.time_since_epoch());
}

}  // namespace

/// A post, and the call with its outcome. Used by the network thread until it is over.
struct NetworkThread::Post final : Block {
  ~Post() override {
    callback = nullptr;
    if (owner == nullptr || isForkedChild()) return;
    const Lock lock(owner->mutex_);
    --endpoint->unfinished;
    owner->changed_.notify_all();
  }

  void run() override { callBack(callback, result); }

  std::shared_ptr<NetworkThread> owner;
  Endpoint* endpoint = nullptr;
  CallThreads::Lanes lanes;  // that expect calls for it
  PostRequest request;
  URLSessionCallback callback;
  RetryRules rules;
  std::int32_t retries = 0;
  Clock::time_point deadline;  // of the whole request
  Clock::time_point limit;     // of the stage
  Clock::time_point due;       // when it may leave the stage `waiting`
  Clock::time_point began;     // when the attempt did
  Clock::time_point lookupBegan;
  Stage stage = Stage::waiting;
  bool hasStarted = false;
  std::shared_ptr<Preparation> preparation;
  Attempt attempt;
  TransferResult result;
};

/// What an interceptor makes of a request. Shared with its call, which may outlast the post.
struct NetworkThread::Preparation {
  URLRequest request;
  URLRequest intercepted;  // becomes `request`, unless the interceptor throws
  std::atomic<bool> isDone{false};
};

NetworkThread::NetworkThread(URLSessionOptions options)
    : options_(std::move(options)),
      calls_(std::make_shared<CallThreads>()),
      wakeUp_(std::in_place),
      endpoints_{{{.path = EndpointPath::track, .posts = {}},
                  {.path = EndpointPath::heartbeat, .posts = {}}}},
      random_(static_cast<unsigned>(Clock::now().time_since_epoch().count())),
      looksUpHost_(options_.proxy.empty()) {
  spare_.push_back(std::make_unique<Post>());
}

void NetworkThread::start() {
  const Lock lock(mutex_);
  wakeUpDescriptor_ = wakeUp_->descriptor();
  if (wakeUpDescriptor_ < 0)
    throw std::system_error(EMFILE, std::generic_category(), "no descriptor for the network");
  isRunning_ = calls_->start() &&
               startBackgroundThread("veltrano.net", [self = shared_from_this()] { self->run(); });
  if (!isRunning_)
    throw std::system_error(EAGAIN, std::generic_category(), "no thread for the network");
}

NetworkThread::~NetworkThread() {
  calls_->shutDown(Clock::now());
}

void NetworkThread::post(PostRequest& request, URLSessionCallback& callback) noexcept {
  Lock lock(mutex_);
  if (isStopped_) return;  // nobody would report it
  const std::size_t path = indexOf(endpointPath(request.path()).value_or(EndpointPath::track));
  Endpoint& endpoint = endpoints_[path];
  CURLcode failure = CURLE_OK;
  if (isClosed_ || endpoint.unfinished >= kMaxUnfinished) failure = CURLE_NO_CONNECTION_AVAILABLE;
  try {
    while (spare_.size() < 2) spare_.push_back(std::make_unique<Post>());
  } catch (const std::bad_alloc&) {
    failure = CURLE_OUT_OF_MEMORY;
  }
  Posts added;
  if (!spare_.empty()) added.splice(added.end(), spare_, spare_.begin());
  CallThreads::Lanes lanes;
  lanes.set(CallThreads::outcome + path, failure != CURLE_OK || callsHost(request));
  if (failure == CURLE_OK) {
    lanes.set(CallThreads::lookup);
    lanes.set(CallThreads::preparation + path,
              request.interceptor != nullptr && options_.interceptorsMayBlock);
  }
  if (added.empty() || !calls_->expect(lanes)) {
    // Without memory or a thread, the callback cannot be deferred.
    lock.unlock();
    TransferResult result{{}, {}, CURLE_OUT_OF_MEMORY};
    return callBack(callback, result);
  }

  ++endpoint.unfinished;
  Post& post = *added.front();
  post.owner = shared_from_this();
  post.endpoint = &endpoint;
  post.lanes = lanes;
  post.callback = std::move(callback);
  if (failure != CURLE_OK) {
    post.result.error = failure;
    return end(std::move(added.front()));
  }
  post.due = Clock::now();
  post.limit = post.deadline = post.due + options_.requestTimeout;
  post.rules.firstBackOff = options_.firstBackOff;
  if (request.maxRetries) post.rules.maxRetries = *request.maxRetries;
  if (request.dontRetryStatusCodesSet)
    post.rules.dontRetryStatusCodes = std::move(*request.dontRetryStatusCodesSet);
  post.request = std::move(request);
  incoming_.splice(incoming_.end(), added);
  wakeUp_->set(post.due);
}

std::optional<Rest> NetworkThread::restOf(EndpointPath path) {
  const Lock lock(mutex_);
  return rests_.of(path).restAt(sinceEpoch(Clock::now()));
}

void NetworkThread::ignoreRetryAfter() {
  const Lock lock(mutex_);
  ignoresRetryAfter_ = true;
  for (Rests& rests : rests_.all) rests.end();
  if (wakeUp_) wakeUp_->set(Clock::now());
}

bool NetworkThread::shutDown(Clock::time_point deadline) {
  Lock lock(mutex_);
  const auto isIdle = [this] {
    return std::all_of(endpoints_.begin(), endpoints_.end(),
                       [](const Endpoint& endpoint) { return endpoint.unfinished == 0; });
  };
  isClosed_ = true;
  // Another shutdown may have an earlier deadline.
  while (!isIdle() && !isStopped_ && Clock::now() < deadline)
    changed_.wait_until(lock.standard(), deadline);
  if (!isStopped_) wasIdle_ = isIdle();
  isStopped_ = true;  // the remaining posts fail now
  changed_.notify_all();
  if (wakeUp_) wakeUp_->set(Clock::now());
  // The thread has its own copy of the descriptor, and may end after this call on a busy machine.
  if (hasOwnDescriptors_) wakeUp_.reset();
  const auto end = Clock::now() + kGrace;
  while ((!isIdle() || isRunning_) && Clock::now() < end) changed_.wait_until(lock.standard(), end);
  if (!isRunning_) wakeUp_.reset();
  lock.unlock();
  calls_->shutDown(end);
  return wasIdle_;
}

void NetworkThread::run() {
  HostCode::mayRunHere = false;
  {
    // Programs that the host executes would inherit some of libcurl's descriptors.
    const Lock lock(mutex_);
    hasOwnDescriptors_ = separateDescriptors(wakeUpDescriptor_);
  }
  {
    ExitGate::Inside inside;
    networkChanges_.emplace();
    dropExceptions([&] { noteNetwork(); });
    for (bool isLast = false; !isLast;) {
      const bool isStopping = isStopped_;  // before the step: no post arrives afterwards
      auto next = Clock::now() + kPause;   // if memory runs out in the step
      dropExceptions([&] {
        next = step();
        isLast = isStopping;
      });
      if (!isLast) inside.wait([&] { wait(next); });
    }
    multi_.reset();
    networkChanges_.reset();
    OPENSSL_thread_stop();  // inside the gate, because exit does not wait for the thread to end
  }
  const Lock lock(mutex_);
  isRunning_ = false;
  changed_.notify_all();
}

void NetworkThread::noteNetwork() {
  options_.onNetworkChange();
  std::string interface = interface_;
  dropExceptions([&] { interface = defaultRouteInterface(); });
  if (interface == interface_) return;
  interface_.swap(interface);
  if (interface_.empty()) return;
  const Lock lock(mutex_);
  for (Rests& rests : rests_.all) rests.routeReturned();
}

// Takes everything as far as it goes. Returns when it goes on without input.
NetworkThread::Clock::time_point NetworkThread::step() {
  {
    const Lock lock(mutex_);
    if (wakeUp_) wakeUp_->set(std::nullopt);
    while (!incoming_.empty()) {
      auto& posts = incoming_.front()->endpoint->posts;
      posts.splice(posts.end(), incoming_, incoming_.begin());
    }
  }
  if (std::exchange(hasNetworkChanged_, false)) {
    networkChanges_->clear();
    noteNetwork();
  }
  perform();
  auto next = Clock::time_point::max();
  for (Endpoint& endpoint : endpoints_) {
    advance(endpoint);
    for (const auto& post : endpoint.posts) {
      next = std::min(next, post->limit);
      if (endpoint.current == nullptr) next = std::min(next, post->due);
    }
  }
  return next;
}

// Lets libcurl work, and notes the transfers that have ended.
void NetworkThread::perform() {
  if (!multi_) return;
  int running = 0;
  const CURLMcode code = curl_multi_perform(multi_.get(), &running);
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left))
    for (Endpoint& endpoint : endpoints_)
      if (endpoint.transfer && endpoint.transfer->handle() == message->easy_handle)
        endpoint.ended = message->data.result;
  for (Endpoint& endpoint : endpoints_)
    if (code != CURLM_OK && endpoint.transfer && !endpoint.ended)
      endpoint.ended = CURLE_OUT_OF_MEMORY;
}

void NetworkThread::wait(Clock::time_point until) {
  using std::chrono::milliseconds;
  constexpr milliseconds kLongest = std::chrono::hours(24);
  const auto time = std::chrono::ceil<milliseconds>(until - Clock::now());
  const int limit = static_cast<int>(std::clamp(time, milliseconds(0), kLongest).count());
  const int changes = networkChanges_->descriptor();
  bool hasWaited = false;
  if (multi_) {
    curl_waitfd inputs[] = {{wakeUpDescriptor_, CURL_WAIT_POLLIN, 0},
                            {changes, CURL_WAIT_POLLIN, 0}};
    hasWaited =
        curl_multi_poll(multi_.get(), inputs, changes < 0 ? 1 : 2, limit, nullptr) == CURLM_OK;
    hasNetworkChanged_ = changes >= 0 && inputs[1].revents != 0;
  } else {
    pollfd inputs[] = {{wakeUpDescriptor_, POLLIN, 0}, {changes, POLLIN, 0}};
    hasWaited = poll(inputs, 2, limit) >= 0;
    hasNetworkChanged_ = changes >= 0 && inputs[1].revents != 0;
  }
  if (!hasWaited) std::this_thread::sleep_for(kPause);
}

// Ends the posts whose time is up, and takes the others as far as they go.
void NetworkThread::advance(Endpoint& endpoint) {
  const auto now = Clock::now();
  for (auto next = endpoint.posts.begin(); next != endpoint.posts.end();) {
    Post& post = **next++;
    if (ignoresRetryAfter_) post.due = std::min(post.due, now + options_.firstBackOff);
    const bool hasEnded = &post == endpoint.current && endpoint.ended;
    if (hasEnded || (post.limit > now && !isStopped_)) continue;
    endAttempt(endpoint, post,
               post.stage == Stage::sending ? endTransfer(endpoint, CURLE_OPERATION_TIMEDOUT)
                                            : TransferResult{{}, {}, CURLE_OPERATION_TIMEDOUT});
  }
  do {
    if (endpoint.current == nullptr) {
      const auto due = std::find_if(endpoint.posts.begin(), endpoint.posts.end(),
                                    [&](const auto& post) { return post->due <= now; });
      if (due == endpoint.posts.end()) return;
      endpoint.current = due->get();
    }
  } while (takeNextStep(endpoint, *endpoint.current));
}

// Returns whether the endpoint can take another step at once.
bool NetworkThread::takeNextStep(Endpoint& endpoint, Post& post) {
  TransferResult failure;
  try {
    switch (post.stage) {
      case Stage::waiting:
        if (const auto rest = restThatPutsOff(endpoint, post)) {
          failure.error = CURLE_NO_CONNECTION_AVAILABLE;
          failure.wasPutOff = true;
          failure.reason = rest->cause == RestCause::server
                               ? "Put off, because the collection host asked for it"
                               : "Put off, because several requests failed in a row";
          break;
        }
        prepare(endpoint, post);
        return true;
      case Stage::preparing:
        if (!post.preparation->isDone) return false;
        post.attempt.request = std::move(post.preparation->request);
        startLookingUp(post);
        return true;
      case Stage::lookingUp:
        failure.error = lookUpNames(post);
        if (failure.error == CURLE_AGAIN) return false;
        failure.attempt.failedToConnect = failure.error == CURLE_COULDNT_RESOLVE_HOST ||
                                          failure.error == CURLE_COULDNT_RESOLVE_PROXY;
        if (failure.error == CURLE_OK) failure.error = send(endpoint, post);
        if (failure.error == CURLE_OK) return false;
        break;
      case Stage::sending:
        if (!endpoint.ended) return false;
        endAttempt(endpoint, post, endTransfer(endpoint, *endpoint.ended));
        return true;
    }
  } catch (const std::exception&) {
    failure.error = CURLE_OUT_OF_MEMORY;
  }
  endAttempt(endpoint, post, std::move(failure));
  return true;
}

std::optional<Rest> NetworkThread::restThatPutsOff(Endpoint& endpoint, Post& post) {
  const Lock lock(mutex_);
  if (std::exchange(post.hasStarted, true)) return std::nullopt;
  return rests_.of(endpoint.path).puttingOff(sinceEpoch(Clock::now()), post.request.urgency);
}

void NetworkThread::prepare(const Endpoint& endpoint, Post& post) {
  PostRequest& request = post.request;
  post.began = Clock::now();
  post.attempt = {{urlWithQuery(request.baseURL, request.qsParameters), request.headerParameters},
                  &request.httpBody,
                  {},
                  {}};
  if (request.interceptor == nullptr) return startLookingUp(post);
  if (!options_.interceptorsMayBlock) {
    request.interceptor->intercept(post.attempt.request);
    return startLookingUp(post);
  }
  post.preparation = std::make_shared<Preparation>();
  post.preparation->intercepted = post.attempt.request;
  post.preparation->request = std::move(post.attempt.request);
  calls_->add(CallThreads::preparation + indexOf(endpoint.path),
              makeBlock([self = shared_from_this(), preparation = post.preparation,
                         interceptor = request.interceptor] {
                if (preparation->isDone) return;  // the post's time was up
                const AtScopeEnd end{[&] {
                  if (isForkedChild()) return;
                  preparation->isDone = true;
                  const Lock lock(self->mutex_);
                  if (self->wakeUp_) self->wakeUp_->set(Clock::now());
                }};
                dropExceptions([&] {
                  interceptor->intercept(preparation->intercepted);
                  preparation->request = std::move(preparation->intercepted);
                });
              }));
  post.stage = Stage::preparing;
}

void NetworkThread::startLookingUp(Post& post) {
  post.stage = Stage::lookingUp;
  post.lookupBegan = Clock::now();
  post.limit = std::min(post.deadline, post.lookupBegan + options_.connectTimeout);
}

// CURLE_AGAIN while a lookup is under way.
CURLcode NetworkThread::lookUpNames(Post& post) {
  CURLcode code = CURLE_OK;
  post.attempt.addresses.clear();
  const std::string& proxy = options_.proxy;
  if (!proxy.empty())
    code = addAddresses(post, hostNameIn(proxy, proxy.rfind("https:", 0) == 0 ? "443" : "1080"),
                        CURLE_COULDNT_RESOLVE_PROXY);
  if (code == CURLE_OK && looksUpHost_)
    code = addAddresses(post, hostNameIn(post.request.baseURL, "443"), CURLE_COULDNT_RESOLVE_HOST);
  return code;
}

CURLcode NetworkThread::addAddresses(Post& post, const std::optional<HostName>& host,
                                     CURLcode failure) {
  std::string addresses = host ? literalAddress(*host) : "";
  if (host && addresses.empty()) {
    const Lock lock(mutex_);
    Name& name = names_[host->key()];
    const bool isFresh = !name.addresses.empty() && Clock::now() - name.since <= kAddressesLast;
    if (!isFresh && name.triedAt < post.lookupBegan) {
      if (name.isBeingLookedUp) return CURLE_AGAIN;
      calls_->add(CallThreads::lookup, makeBlock([self = shared_from_this(), host = *host, &name] {
                    self->lookUp(host, name);
                  }));
      name.isBeingLookedUp = true;
      return CURLE_AGAIN;
    }
    if (name.addresses.empty()) return failure;
    addresses = name.addresses;  // possibly old ones
  }
  post.attempt.addresses.push_back(host ? host->key() + addresses : "");
  return CURLE_OK;
}

// On a call thread.
void NetworkThread::lookUp(const HostName& host, Name& name) {
  std::string addresses;
  dropExceptions([&] { addresses = addressesOf(host); });
  const Lock lock(mutex_);
  name.isBeingLookedUp = false;
  name.triedAt = Clock::now();
  if (!addresses.empty()) {
    name.since = name.triedAt;
    name.addresses.swap(addresses);
  }
  if (wakeUp_) wakeUp_->set(name.triedAt);
}

CURLcode NetworkThread::send(Endpoint& endpoint, Post& post) {
  const bool isIdle = std::all_of(endpoints_.begin(), endpoints_.end(),
                                  [](const Endpoint& each) { return each.transfer == nullptr; });
  if (isIdle && !std::exchange(keepsMulti_, true)) multi_.reset();
  if (!multi_) {
    multi_.reset(curl_multi_init());
    if (!multi_) return CURLE_OUT_OF_MEMORY;
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, long{kEndpointPathCount});
  }
  post.limit = post.attempt.deadline =
      std::min(post.deadline, Clock::now() + options_.attemptTimeout);
  auto transfer = std::make_unique<HTTPTransfer>(sockets_, options_, post.attempt, isStopped_);
  if (transfer->handle() == nullptr ||
      curl_multi_add_handle(multi_.get(), transfer->handle()) != CURLM_OK)
    return CURLE_FAILED_INIT;
  endpoint.transfer = std::move(transfer);
  post.stage = Stage::sending;
  return CURLE_OK;
}

TransferResult NetworkThread::endTransfer(Endpoint& endpoint, CURLcode code) noexcept {
  const auto transfer = std::move(endpoint.transfer);
  CURL* const easy = transfer->handle();
  endpoint.ended.reset();
  curl_multi_remove_handle(multi_.get(), easy);
  TransferResult result{{}, {}, CURLE_OUT_OF_MEMORY};
  dropExceptions([&] { result = transfer->result(code, options_.wallClock->now()); });
  keepsMulti_ = keepsMulti_ && !result.lacksConnection && result.error != CURLE_OUT_OF_MEMORY;
  return result;
}

// Ends an attempt: the post waits for its retry, or is over.
void NetworkThread::endAttempt(Endpoint& endpoint, Post& post, TransferResult result) {
  const auto now = Clock::now();
  const Stage stage = std::exchange(post.stage, Stage::waiting);
  if (endpoint.current == &post) endpoint.current = nullptr;
  if (post.preparation != nullptr) post.preparation->isDone = true;  // do not start it any more
  post.preparation = nullptr;
  post.limit = post.deadline;
  if (result.lacksAddresses && !looksUpHost_) {
    looksUpHost_ = true;
    return;  // due since before
  }
  if (ignoresRetryAfter_) result.attempt.retryAfter.reset();
  const double random = std::uniform_real_distribution<double>(0, 1)(random_);
  const auto timeLeft =
      isStopped_ ? Duration::zero() : std::chrono::duration_cast<Duration>(post.deadline - now);
  auto delay = delayBeforeRetry(result.attempt, post.rules, post.retries, timeLeft, random);
  std::optional<Rest> rest;
  {
    const Lock lock(mutex_);
    Rests& rests = rests_.of(endpoint.path);
    if (!rests.mayRetry()) delay.reset();
    const bool tellsOfServer = (stage == Stage::lookingUp || stage == Stage::sending) &&
                               result.error != CURLE_OUT_OF_MEMORY &&
                               result.error != CURLE_FAILED_INIT;
    AttemptResult last = result.attempt;
    last.failedToConnect |= stage == Stage::lookingUp;
    if (!delay && tellsOfServer) rest = rests.requestEnded(sinceEpoch(now), last, random);
  }
  if (!result.wasPutOff) report(endpoint, post, result, delay.has_value(), rest);
  if (delay) {
    ++post.retries;
    post.began = {};
    post.due = now + *delay;
    return;
  }
  post.result = std::move(result);
  const auto its = std::find_if(endpoint.posts.begin(), endpoint.posts.end(),
                                [&](const auto& each) { return each.get() == &post; });
  end(std::move(*its));
  endpoint.posts.erase(its);
}

// A thread is free for what calls the host. Only if the log was enabled after the request began,
// its outcome may have to wait while a lookup and an outcome of the other path are stuck.
void NetworkThread::end(std::unique_ptr<Post> post) {
  const CallThreads::Lanes lanes = post->lanes;
  const std::size_t lane = CallThreads::outcome + indexOf(post->endpoint->path);
  if (callsHost(post->request)) return calls_->add(lane, std::move(post), lanes);
  calls_->stopExpecting(lanes);
  post->run();
}

bool NetworkThread::callsHost(const PostRequest& request) const {
  return options_.onTransfer || request.callsHost == nullptr || *request.callsHost;
}

// Reports an attempt, if the host wants that.
void NetworkThread::report(const Endpoint& endpoint, const Post& post, const TransferResult& result,
                           bool willRetry, const std::optional<Rest>& rest) {
  if (!options_.onTransfer) return;
  dropExceptions([&] {
    TransferReport report;
    report.path = post.request.path();
    report.attempt = post.retries + 1;
    if (post.began != Clock::time_point())
      report.duration =
          std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - post.began);
    report.bytesSent = result.bytesSent;
    report.bytesReceived = result.bytesReceived;
    report.status = result.attempt.httpStatusCode.value_or(0);
    report.reason = reasonOf(result);
    report.willRetry = willRetry;
    if (rest)
      report.putOffUntil = std::chrono::system_clock::time_point(
          std::chrono::duration_cast<std::chrono::system_clock::duration>(
              options_.wallClock->now().sinceEpoch + rest->left));
    calls_->add(CallThreads::outcome + indexOf(endpoint.path),
                makeBlock([self = shared_from_this(), report = std::move(report)] {
                  callHost(self->options_.onTransfer, report);
                }));
  });
}

}  // namespace veltrano::internal
