#include "cli/store_session.h"

#include "cli/args.h"
#include "core/stack/effects_data.h"

namespace zorvex::cli {

StoreSession::~StoreSession() {
  if (!file_) return;
  EffectsData::shared().setDefaults(nullptr);
  setStandardDefaults(nullptr);
}

int StoreSession::open(const std::optional<std::string>& flag) {
  file_ = std::make_unique<native::DefaultsFile>(native::defaultsPath(flag));
  std::string notice, error;
  if (!file_->load(notice, error)) {
    complain(error);
    file_.reset();
    return kExitFailure;
  }
  if (!notice.empty()) complain(notice);
  setStandardDefaults(file_.get());
  EffectsData& data = EffectsData::shared();
  data.setDefaults(file_.get());
  data.effects.clear();
  data.loadEffects();
  return -1;
}

int StoreSession::finish(int code, bool writesMatter) {
  if (!file_ || file_->writeError().empty()) return code;
  complain(file_->writeError());
  return writesMatter && code == kExitOk ? kExitFailure : code;
}

}  // namespace zorvex::cli
