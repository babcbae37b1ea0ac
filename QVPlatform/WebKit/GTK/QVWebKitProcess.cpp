// The program that runs WebKit for libQVWebKit: evaluates the script on standard input in an empty
// page and writes the answer to standard output (Answer.h).

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <webkit/webkit.h>

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

#include "Answer.h"

namespace {

using namespace QVPlatform::WebKit;

constexpr unsigned kTimeLimit = 30;  // seconds

/// Where the answer goes; standard output itself is closed to the libraries, which may write there.
int answerDescriptor = -1;

[[noreturn]] void answer(Answer kind, std::string_view text) {
  std::string bytes(1, kind);
  bytes += text;
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const ssize_t written = write(answerDescriptor, rest.data(), rest.size());
    if (written <= 0) break;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  _exit(
      0);  // without the libraries' exit handlers: WebKit's processes notice the end by themselves
}

void takeStandardOutput() {
  answerDescriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
}

/// Ends with the application's thread that waits for the answer, and in any case soon.
void limitLife() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  alarm(kTimeLimit);
}

/// An empty page needs no sandbox (which not every container can give), no message bus, no
/// accessibility and no settings service; without them it leaves nothing behind on the system.
void chooseEnvironment() {
  setenv("WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS", "1", 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
  setenv("GTK_A11Y", "none", 1);
  setenv("GSETTINGS_BACKEND", "memory", 1);
  setenv("MESA_SHADER_CACHE_DISABLE", "true", 1);
}

void answerWith(JSCValue* value) {
  if (jsc_value_is_boolean(value)) answer(kBoolean, jsc_value_to_boolean(value) ? "1" : "0");
  if (jsc_value_is_number(value)) {
    char text[G_ASCII_DTOSTR_BUF_SIZE];
    answer(kNumber, g_ascii_dtostr(text, sizeof text, jsc_value_to_double(value)));
  }
  if (jsc_value_is_string(value)) {
    gsize size = 0;
    GBytes* const bytes = jsc_value_to_string_as_bytes(value);
    const auto* text = static_cast<const char*>(g_bytes_get_data(bytes, &size));
    answer(kText, {text, size});
  }
  answer(kNil, "");
}

void onAnswer(GObject* view, GAsyncResult* result, gpointer) {
  GError* error = nullptr;
  JSCValue* const value =
      webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(view), result, &error);
  if (!value) answer(kError, error->message);
  answerWith(value);
}

void evaluate(const std::string& script) {
  WebKitSettings* const settings = webkit_settings_new();
  webkit_settings_set_hardware_acceleration_policy(settings,
                                                   WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER);
  gpointer const view = g_object_new(WEBKIT_TYPE_WEB_VIEW, "settings", settings, "network-session",
                                     webkit_network_session_new_ephemeral(), nullptr);
  g_object_ref_sink(view);
  webkit_web_view_evaluate_javascript(WEBKIT_WEB_VIEW(view), script.data(),
                                      static_cast<gssize>(script.size()), nullptr, nullptr, nullptr,
                                      onAnswer, nullptr);
}

}  // namespace

int main() {
  limitLife();
  takeStandardOutput();
  chooseEnvironment();
  const std::string script(std::istreambuf_iterator<char>(std::cin), {});
  gtk_disable_setlocale();
  if (!gtk_init_check()) answer(kError, "there is no display");
  evaluate(script);
  for (;;) g_main_context_iteration(nullptr, TRUE);
}
