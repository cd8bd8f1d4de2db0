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
  // Loading puts the built-in list in place of a stored one it can't decode: the file as it was is
  // kept first, and if it can't be, nothing is written over it.
  if (const std::string problem = storedListProblem(*file_); !problem.empty()) {
    std::string why;
    if (const std::string copy = file_->keepCopy(why); !copy.empty()) {
      complain(file_->path() + ": the stored effect list can't be used (" + problem +
               "); the built-in list takes its place, and the file as it was is kept in " + copy);
    } else {
      complain(file_->path() + ": the stored effect list can't be used (" + problem +
               ") and no copy can be kept (" + why + "); the built-in list is used and the file is left as it is");
      file_->release();
      keepUnchanged_ = true;
    }
  }
  setStandardDefaults(file_.get());
  EffectsData& data = EffectsData::shared();
  data.setDefaults(file_.get());
  data.effects.clear();
  if (keepUnchanged_) file_->setReadOnly(true);
  data.loadEffects();
  // What loading itself writes (the built-in effects a stored list lacks) is not what the command is
  // for: a read-only file is still read, and the failure is only told.
  if (!file_->writeError().empty()) {
    complain(file_->writeError());
    file_->clearWriteError();
  }
  return -1;
}

void StoreSession::release() {
  if (file_) file_->release();
}

int StoreSession::finish(int code, bool writesMatter) {
  if (!file_ || file_->writeError().empty()) return code;
  complain(file_->writeError());
  return writesMatter && code == kExitOk ? kExitFailure : code;
}

}  // namespace zorvex::cli
