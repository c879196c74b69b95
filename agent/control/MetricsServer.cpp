#include "agent/control/MetricsServer.h"

#include <optional>
#include <utility>

#include "agent/control/HttpRequest.h"
#include "agent/control/UnixSocket.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr std::string_view openMetrics =
    "application/openmetrics-text; version=1.0.0; charset=utf-8";
constexpr std::string_view prometheusText = "text/plain; version=0.0.4; charset=utf-8";

std::string httpHeading(std::string_view status, std::string_view contentType,
                        std::string_view otherFields = "") {
  return message("HTTP/1.0 ", status, "\r\nContent-Type: ", contentType, "\r\n", otherFields,
                 "Connection: close\r\n\r\n");
}

MetricsFormat formatFor(HttpRequest const& request) {
  return request.accept.find("application/openmetrics-text") == std::string_view::npos
             ? MetricsFormat::text
             : MetricsFormat::openMetrics;
}

std::string headingFor(MetricsFormat format) {
  return httpHeading("200 OK", format == MetricsFormat::text ? prometheusText : openMetrics);
}

/// Nothing if there is what the request asks for.
std::string refusalOf(std::optional<HttpRequest> const& request) {
  constexpr std::string_view plain = "text/plain";
  if (!request) return httpHeading("400 Bad Request", plain) + "this is no request of HTTP/1\n";
  if (request->method != "GET" && request->method != "HEAD")
    return httpHeading("405 Method Not Allowed", plain, "Allow: GET, HEAD\r\n") +
           "only GET and HEAD are served\n";
  if (request->path == "/metrics") return "";
  std::string const heading = httpHeading("404 Not Found", plain);
  return request->method == "HEAD" ? heading : heading + "the metrics are at /metrics\n";
}

}  // namespace

SocketServer::Limits MetricsServer::limitsOfScrapers() {
  Limits limits;
  limits.requestTime = std::chrono::milliseconds(200);
  return limits;
}

SocketServer::Limits MetricsServer::limitsOfStrangers() {
  Limits limits;
  limits.wholeTime = std::chrono::seconds(30);
  return limits;
}

MetricsServer::MetricsServer(Horix::EventLoop& loop, Switch const& snoopingSwitch,
                             ControlServer const& control, std::unique_ptr<ListeningSocket> socket,
                             Limits const& limits)
    : SocketServer(loop, std::move(socket), limits), switch_(snoopingSwitch), control_(control) {}

MetricsServer::MetricsServer(Horix::EventLoop& loop, Switch const& snoopingSwitch,
                             ControlServer const& control, std::string path, Limits const& limits)
    : MetricsServer(loop, snoopingSwitch, control, std::make_unique<UnixSocket>(std::move(path)),
                    limits) {}

MetricsServer::~MetricsServer() = default;

bool MetricsServer::isComplete(std::string_view input, bool ended) const {
  return ended || input.find("\r\n\r\n") != std::string_view::npos ||
         input.find("\n\n") != std::string_view::npos;
}

std::unique_ptr<Answer> MetricsServer::answerToSilence(std::string_view input) {
  return input.empty() ? answerTo(input) : nullptr;
}

std::unique_ptr<Answer> MetricsServer::answerTo(std::string_view text) {
  if (text.empty()) return metrics(MetricsFormat::openMetrics, "");
  auto const request = httpRequestIn(text);
  if (std::string refusal = refusalOf(request); !refusal.empty())
    return std::make_unique<TextAnswer>(std::move(refusal));
  MetricsFormat const format = formatFor(*request);
  if (request->method == "HEAD") return std::make_unique<TextAnswer>(headingFor(format));
  return metrics(format, headingFor(format));
}

std::unique_ptr<Answer> MetricsServer::metrics(MetricsFormat format, std::string heading) const {
  loop().endBatch();
  return metricsAnswer(switch_, control_, format, std::move(heading), control_.forwarding(),
                       control_.configurationState());
}

std::string MetricsServer::refusal(std::string_view reason) const {
  return httpHeading("503 Service Unavailable", "text/plain") + std::string(reason) + '\n';
}

}  // namespace Agent
