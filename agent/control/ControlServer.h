#pragma once

#include <memory>
#include <string>

#include "agent/Switch.h"
#include "agent/config/ConfigurationState.h"
#include "agent/control/MonitorFeeds.h"
#include "agent/control/Request.h"
#include "agent/control/SocketServer.h"
#include "agent/forwarding/Forwarding.h"

namespace Agent {

/// The agent's control socket: igmpsnoopctl asks here. A request is one line of JSON, and so is
/// each line of the answer; one with the key "error" says what could not be done.
class ControlServer final : public SocketServer {
 public:
  /// Throws std::runtime_error if the path cannot be listened on.
  /// @param snoopingSwitch outlives the server.
  ControlServer(Horix::EventLoop& loop, Switch& snoopingSwitch, std::string path,
                Limits const& limits = {});
  ~ControlServer() override;

  /// Who restarts the agent when a client asks for it, and tells the client why not, or nothing if
  /// it is about to happen. Nobody at first.
  using Restart = std::function<void(std::function<void(std::string const& problem)>)>;
  void onRestartIs(Restart action) { onRestart_ = std::move(action); }

  /// Of which is told. Outlives the server.
  void configurationStateIs(ConfigurationState const& state) { configuration_ = &state; }
  ConfigurationState const* configurationState() const { return configuration_; }

  /// Of which is told, too. Outlives the server.
  void forwardingIs(Forwarding const& forwarding) { forwarding_ = &forwarding; }
  Forwarding const* forwarding() const { return forwarding_; }

  /// Seconds are counted from then on.
  Horix::Time start() const { return start_; }

 private:
  bool isComplete(std::string_view input, bool ended) const override;
  std::unique_ptr<Answer> answerToSilence(std::string_view input) override;
  std::unique_ptr<Answer> answerTo(std::string_view request) override;
  std::string refusal(std::string_view reason) const override;

  std::unique_ptr<Answer> answerTo(Request const& request);
  std::unique_ptr<Answer> explanation(Request const& request) const;
  std::unique_ptr<Answer> clearing(Request const& request);
  std::unique_ptr<Answer> tracing(Request const& request) const;
  std::unique_ptr<Answer> restarting() const;

  Switch& switch_;
  Horix::Time start_;
  Restart onRestart_;
  Forwarding const* forwarding_ = nullptr;
  ConfigurationState const* configuration_ = nullptr;
  MonitorFeeds feeds_;
};

}  // namespace Agent
