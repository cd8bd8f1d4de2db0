#include "web/engine/web_defaults.h"

#include <emscripten/emscripten.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "core/imaging/platform.h"
#include "core/look/json.h"

namespace zorvex::web {
namespace {

EM_JS(void, notifyDefaultsChanged, (), {
  if (Module["onDefaultsChanged"]) Module["onDefaultsChanged"]();
});

EM_JS(void, notifyAnalyticsEvent, (const char* name, const char* parameters), {
  if (Module["onAnalyticsEvent"])
    Module["onAnalyticsEvent"](UTF8ToString(name), parameters ? JSON.parse(UTF8ToString(parameters)) : null);
});

}  // namespace

bool BrowserDefaults::load(const uint8_t* bytes, size_t length) {
  plist::Value root;
  std::string error;
  if (!bytes || length == 0) {
    replaceAll(plist::Value::dictionary());
    return true;
  }
  if (!plist::readBinary({bytes, length}, root, error) || !root.is(plist::Type::dictionary)) {
    consoleLine("Stored defaults could not be read (" + (error.empty() ? std::string("not a dictionary") : error) +
                "); starting from empty defaults");
    replaceAll(plist::Value::dictionary());
    return false;
  }
  replaceAll(std::move(root));
  return true;
}

std::string BrowserDefaults::encoded() const {
  std::vector<uint8_t> out;
  std::string error;
  if (!plist::writeBinary(dictionary(), out, error)) {
    consoleLine("Defaults could not be encoded: " + error);
    return {};
  }
  return std::string(out.begin(), out.end());
}

std::string BrowserDefaults::scalarsJson() const {
  const plist::Value& d = dictionary();
  std::string out = "{";
  for (size_t i = 0; i < d.count(); ++i) {
    const plist::Value& v = d.items()[i];
    std::string value;
    switch (v.type()) {
      case plist::Type::boolean: value = v.asBool() ? "true" : "false"; break;
      case plist::Type::integer: value = std::to_string(v.asInteger()); break;
      case plist::Type::real: {
        char buffer[40];
        std::snprintf(buffer, sizeof buffer, "%.17g", v.asReal());
        value = std::isfinite(v.asReal()) ? buffer : "null";
        break;
      }
      case plist::Type::string: value = json::quote(v.asString()); break;
      default: continue;
    }
    if (out.size() > 1) out += ',';
    out += json::quote(d.keys()[i]) + ":" + value;
  }
  return out + "}";
}

void BrowserDefaults::changed() { notifyDefaultsChanged(); }

void BrowserAnalytics::logEvent(std::string_view name, const AnalyticsParameters* parameters) {
  std::string params;
  if (parameters) {
    params = "{";
    for (const auto& [key, value] : *parameters) {
      if (params.size() > 1) params += ',';
      params += json::quote(key) + ":" + json::quote(value);
    }
    params += "}";
  }
  notifyAnalyticsEvent(std::string(name).c_str(), parameters ? params.c_str() : nullptr);
}

}  // namespace zorvex::web
