// The host's side of the conversation with its clients.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/launchctl/embedded/host.h"
#include "tools/launchctl/embedded/messages.h"
#include "tools/launchctl/failure.h"

namespace launchctl {
namespace {

constexpr std::size_t kMostClients = 256;
constexpr double kEndMargin = 2;  // seconds between SIGKILL and the answer, at most

Dictionary result(const char* word) { return ListBuilder().set(message::kResult, word).list(); }

Dictionary failed(const std::string& text) {
  return ListBuilder().set(message::kResult, message::kFailed).set(message::kText, text).list();
}

bool isOwnUser(int socket) {
  ucred peer{};
  socklen_t length = sizeof peer;
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.uid == ::geteuid();
}

std::string triggersOf(const Job& job) {
  std::string texts;
  for (const PathState& state : job.description().pathStates) {
    if (!texts.empty()) texts += ", ";
    texts += state.path + (state.exists ? " is not there" : " is there");
  }
  return texts;
}

}  // namespace

void Host::acceptClients() {
  for (;;) {
    Descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) return;
    if (!isOwnUser(socket.get()) || clients_.size() >= kMostClients) continue;
    const int number = socket.get();
    auto client = std::make_unique<Client>();
    client->socket = std::move(socket);
    watch(number, EPOLLIN | EPOLLRDHUP);
    clients_[number] = std::move(client);
  }
}

void Host::serve(int descriptor, std::uint32_t events) {
  Client& client = *clients_.at(descriptor);
  bool stays = true;
  if ((events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) stays = readFrom(client);
  if (stays && (events & EPOLLOUT) != 0) stays = writeTo(client);
  if (!stays) {
    clients_.erase(descriptor);
    served_ = true;
    idleSince_ = Clock::now();
  }
}

// False when the client has gone or makes no sense.
bool Host::readFrom(Client& client) {
  char buffer[16384];
  for (;;) {
    const ssize_t count = ::recv(client.socket.get(), buffer, sizeof buffer, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN;
    if (count == 0) return false;
    try {
      client.reader.append(buffer, static_cast<std::size_t>(count));
      while (const auto request = client.reader.next()) dispatch(client, *request);
    } catch (const Failure& failure) {
      log(std::string("a client was sent away: ") + failure.what());
      return false;
    }
  }
}

bool Host::writeTo(Client& client) {
  while (!client.unsent.empty()) {
    const ssize_t count = ::send(client.socket.get(), client.unsent.data(), client.unsent.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno != EAGAIN) return false;
    if (count > 0) client.unsent.erase(0, static_cast<std::size_t>(count));
    if (count < 0) break;
  }
  epoll_event event{};
  event.events = static_cast<std::uint32_t>(EPOLLIN | EPOLLRDHUP) | (client.unsent.empty() ? 0U : EPOLLOUT);
  event.data.fd = client.socket.get();
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, client.socket.get(), &event);
  return true;
}

// A client that cannot be written to is noticed when its socket is read.
void Host::reply(Client& client, const Dictionary& answer) {
  client.unsent += frame(answer);
  writeTo(client);
}

void Host::dispatch(Client& client, const Dictionary& request) {
  Dictionary answer;
  try {
    answer = answerTo(client, request);
  } catch (const Failure& failure) {
    answer = failed(failure.what());
  }
  // Empty while the request waits.
  if (answer) reply(client, answer);
}

Dictionary Host::answerTo(Client& client, const Dictionary& request) {
  const std::string verb = stringOf(request.get(), message::kVerb).value_or("");
  if (verb == message::kLoad) return load(client, request);
  if (verb == message::kList) {
    const auto only = stringOf(request.get(), message::kLabel);
    std::vector<Dictionary> jobs;
    for (const auto& [label, job] : jobs_) {
      if (!only || *only == label) jobs.push_back(listOfStatus(job->status()));
    }
    return ListBuilder().set(message::kResult, message::kDone).set(message::kJobs, jobs).list();
  }
  const auto job = jobs_.find(stringOf(request.get(), message::kLabel).value_or(""));
  if (job == jobs_.end()) return result(message::kUnknown);
  if (verb == message::kUnload) return unload(client, request, *job->second);
  if (verb == message::kStart) return start(*job->second);
  if (verb == message::kStop) return stop(client, request, *job->second);
  return failed("the host does not know the request \"" + verb + "\"");
}

// Says how long it may take, and keeps the request until answerWaiters() can answer it.
Dictionary Host::wait(Client& client, const Dictionary& request, const Job& job) {
  client.waiting = request;
  client.endsSeen = job.ends();
  const double most = job.exitTimeOut() > 0 ? job.exitTimeOut() + kEndMargin : 0;
  reply(client, ListBuilder().set(message::kResult, message::kWaiting).set(message::kSeconds, most).list());
  return {};
}

Dictionary Host::load(Client& client, const Dictionary& request) {
  if (ending_) return failed("launchd-host has been told to end");
  auto job = std::make_unique<Job>(request);
  const std::string label = job->label();
  const auto present = jobs_.find(label);
  if (present != jobs_.end()) {
    return present->second->unloading() ? wait(client, request, *present->second) : result(message::kAlready);
  }
  Job& added = *job;
  jobs_[label] = std::move(job);
  watchTriggers();
  const TimePoint now = Clock::now();
  for (auto& entry : jobs_) {
    if (entry.second.get() != &added) entry.second->setWanted(wants(*entry.second), now);
  }
  added.begin(wants(added), now);
  // It runs, and stands in the state file, before the answer goes out.
  dirty_ = true;
  advance();
  return result(message::kDone);
}

Dictionary Host::unload(Client& client, const Dictionary& request, Job& job) {
  job.unload(Clock::now());
  dirty_ = true;
  return wait(client, request, job);
}

Dictionary Host::start(Job& job) {
  if (job.description().triggered() && !job.wanted()) {
    return failed(job.label() + ": its trigger decides, and it is not as asked: " + triggersOf(job));
  }
  job.start(Clock::now());
  advance();
  return result(message::kDone);
}

Dictionary Host::stop(Client& client, const Dictionary& request, Job& job) {
  if (job.down()) return result(message::kDone);
  Dictionary answer = wait(client, request, job);
  job.stop(Clock::now());
  return answer;
}

// Answers those whose job has come to its end.
void Host::answerWaiters() {
  for (auto& entry : clients_) {
    Client& client = *entry.second;
    if (!client.waiting) continue;
    const Dictionary request = client.waiting;
    const std::string verb = stringOf(request.get(), message::kVerb).value_or("");
    const std::string label = verb == message::kLoad
                                  ? stringOf(dictionaryOf(request.get(), message::kJob).get(), "Label").value_or("")
                                  : stringOf(request.get(), message::kLabel).value_or("");
    const auto job = jobs_.find(label);
    const bool gone = job == jobs_.end();
    if (verb == message::kLoad && gone) {
      client.waiting = {};
      dispatch(client, request);
    } else if (gone || (verb == message::kStop && job->second->ends() != client.endsSeen)) {
      client.waiting = {};
      reply(client, result(message::kDone));
    }
  }
}

}  // namespace launchctl
