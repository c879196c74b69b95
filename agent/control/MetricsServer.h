#pragma once

#include <memory>
#include <string>

#include "agent/Switch.h"
#include "agent/control/ControlServer.h"
#include "agent/control/Metrics.h"
#include "agent/control/SocketServer.h"

namespace Agent {

/// Gives whoever connects the metrics: as they are, or as an HTTP response at /metrics to who sends
/// an HTTP request, in OpenMetrics to who accepts that by name.
class MetricsServer final : public SocketServer {
 public:
  /// A scraper that has not begun to speak HTTP by then does not.
  static Limits limitsOfScrapers();
  /// Of a network: whoever reaches the address may come, and be slow on purpose.
  static Limits limitsOfStrangers();

  /// @param control whose clients are counted. It and the switch outlive this.
  MetricsServer(Horix::EventLoop& loop, Switch const& snoopingSwitch, ControlServer const& control,
                std::unique_ptr<ListeningSocket> socket, Limits const& limits);
  /// On a Unix socket. Throws std::runtime_error if the path cannot be listened on.
  MetricsServer(Horix::EventLoop& loop, Switch const& snoopingSwitch, ControlServer const& control,
                std::string path, Limits const& limits = limitsOfScrapers());
  ~MetricsServer() override;

 private:
  bool isComplete(std::string_view input, bool ended) const override;
  std::unique_ptr<Answer> answerToSilence(std::string_view input) override;
  std::unique_ptr<Answer> answerTo(std::string_view text) override;
  std::string refusal(std::string_view reason) const override;
  std::unique_ptr<Answer> metrics(MetricsFormat format, std::string heading) const;

  Switch const& switch_;
  ControlServer const& control_;
};

}  // namespace Agent
