#include "desktop/system/Feedback.h"

#include <QClipboard>
#include <QGuiApplication>

#include <cstdio>

#include "kit/Dispatch.h"

namespace desktop {

namespace {

std::string escaped(const std::string& text) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
        c == '.' || c == '~' || c == '@') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

std::string withLineBreaks(std::string body) {
  for (std::size_t at; (at = body.find("<br>")) != std::string::npos;) body.replace(at, 4, "\n");
  return body;
}

}  // namespace

std::optional<std::string> queryMailHandler() {
  FILE* pipe = ::popen("xdg-mime query default x-scheme-handler/mailto 2>/dev/null", "r");
  if (!pipe) return std::nullopt;
  std::string out;
  char buffer[256];
  while (std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) out.append(buffer, n);
  const int status = ::pclose(pipe);
  while (!out.empty() && (out.back() == '\n' || out.back() == ' ' || out.back() == '\r')) out.pop_back();
  if (status != 0 || out.empty()) return std::nullopt;
  return out;
}

std::string mailtoURL(const platform::MailMessage& message) {
  std::string to;
  for (const auto& r : message.toRecipients) to += (to.empty() ? "" : ",") + escaped(r);
  const std::string body = message.isHTML ? withLineBreaks(message.body) : message.body;
  return "mailto:" + to + "?subject=" + escaped(message.subject) + "&body=" + escaped(body);
}

MailComposer::MailComposer(MailHandlerQuery query, Application::Launcher launcher)
    : query_(query ? std::move(query) : queryMailHandler), launcher_(launcher ? std::move(launcher) : runProgram) {}

bool MailComposer::canSendMail() { return query_().has_value(); }

void MailComposer::compose(const platform::MailMessage& message,
                           std::function<void(platform::MailComposeResult)> finished) {
  kit::globalQueue(kit::QoS::Utility).async([launcher = launcher_, url = mailtoURL(message), finished] {
    const bool handedOver = launcher({"xdg-open", url});
    kit::mainQueue().async([finished, handedOver] {
      if (finished) finished(handedOver ? platform::MailComposeResult::Sent : platform::MailComposeResult::Failed);
    });
  });
}

void Pasteboard::setString(const std::string& text) {
  text_ = text;
  if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
    QGuiApplication::clipboard()->setText(QString::fromStdString(text));
  }
}

std::string Pasteboard::string() {
  if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
    return QGuiApplication::clipboard()->text().toStdString();
  }
  return text_;
}

}  // namespace desktop
