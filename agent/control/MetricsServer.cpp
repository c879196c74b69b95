#include "agent/control/MetricsServer.h"

#include <utility>

#include "agent/control/Metrics.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr std::string_view openMetrics =
    "application/openmetrics-text; version=1.0.0; charset=utf-8";

std::string httpHeading(std::string_view status, std::string_view contentType) {
  return message("HTTP/1.0 ", status, "\r\nContent-Type: ", contentType,
                 "\r\nConnection: close\r\n\r\n");
}

}  // namespace

SocketServer::Limits MetricsServer::limitsOfScrapers() {
  Limits limits;
  limits.requestTime = std::chrono::milliseconds(200);
  return limits;
}

MetricsServer::MetricsServer(Horix::EventLoop& loop, Switch const& snoopingSwitch,
                             ControlServer const& control, std::string path, Limits const& limits)
    : SocketServer(loop, std::move(path), limits), switch_(snoopingSwitch), control_(control) {}

MetricsServer::~MetricsServer() = default;

bool MetricsServer::isComplete(std::string_view input, bool ended) const {
  return ended || input.find("\r\n\r\n") != std::string_view::npos ||
         input.find("\n\n") != std::string_view::npos;
}

std::unique_ptr<Answer> MetricsServer::answerToSilence(std::string_view input) {
  return input.empty() ? answerTo(input) : nullptr;
}

std::unique_ptr<Answer> MetricsServer::answerTo(std::string_view request) {
  loop().endBatch();
  if (request.empty())
    return metricsAnswer(switch_, control_, "", control_.forwarding(),
                         control_.configurationState());
  if (request.starts_with("GET "))
    return metricsAnswer(switch_, control_, httpHeading("200 OK", openMetrics),
                         control_.forwarding(), control_.configurationState());
  return std::make_unique<TextAnswer>(httpHeading("405 Method Not Allowed", "text/plain") +
                                      "only GET is served\n");
}

std::string MetricsServer::refusal(std::string_view reason) const {
  return httpHeading("503 Service Unavailable", "text/plain") + std::string(reason) + '\n';
}

}  // namespace Agent
