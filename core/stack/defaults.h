// The user defaults: a persistent store of property-list values under string keys, read and written
// with the platform's semantics (an absent integer reads 0, an absent flag false). The core reaches
// the store only through this interface; the command line keeps it in a file, the web app in the
// browser's storage, and tests in memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/stack/plist.h"

namespace zorvex {

class DefaultsStore {
 public:
  virtual ~DefaultsStore() = default;

  // The value under `key`, or null.
  virtual const plist::Value* objectForKey(std::string_view key) const = 0;
  virtual void setObject(std::string_view key, plist::Value value) = 0;
  virtual void removeObjectForKey(std::string_view key) = 0;
  // Makes what was written lasting; stores that write at once do nothing here.
  virtual void synchronize() {}

  // An integer, a flag, a real or a string that starts with a number reads as that number; anything
  // else, and an absent key, reads 0.
  int64_t integerForKey(std::string_view key) const;
  // A flag reads as itself, a number as whether it is non-zero, a string as whether it starts with
  // Y, y, T, t or a digit 1 to 9 (after blanks, a sign and zeros); anything else reads false.
  bool boolForKey(std::string_view key) const;
  std::optional<std::string> stringForKey(std::string_view key) const;
  // The bytes of a data value; null for anything else.
  const std::vector<uint8_t>* dataForKey(std::string_view key) const;

  void setInteger(int64_t value, std::string_view key) { setObject(key, plist::Value::integer(value)); }
  void setBool(bool value, std::string_view key) { setObject(key, plist::Value::boolean(value)); }
  void setString(std::string value, std::string_view key) { setObject(key, plist::Value::string(std::move(value))); }
  void setData(std::vector<uint8_t> value, std::string_view key) { setObject(key, plist::Value::data(std::move(value))); }
};

// A store that lives in memory: a dictionary of every key.
class MemoryDefaults : public DefaultsStore {
 public:
  const plist::Value* objectForKey(std::string_view key) const override { return values_.find(key); }
  void setObject(std::string_view key, plist::Value value) override;
  void removeObjectForKey(std::string_view key) override;

  const plist::Value& dictionary() const { return values_; }
  void replaceAll(plist::Value dictionary) { values_ = std::move(dictionary); }

 protected:
  // Called after each change.
  virtual void changed() {}

 private:
  plist::Value values_ = plist::Value::dictionary();
};

// The standard defaults of the process: a MemoryDefaults until another store is installed.
DefaultsStore& standardDefaults();
// Installs `store` (not owned) or, with nullptr, the in-memory one again.
void setStandardDefaults(DefaultsStore* store);

}  // namespace zorvex
