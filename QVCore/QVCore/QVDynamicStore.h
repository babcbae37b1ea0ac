#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Foundation/Coding.h>
#include <QVPlatform/Foundation/ForkMutex.h>
#include <QVPlatform/Foundation/Value.h>

#include <memory>

class QVDynamicStore;

/// A store of variables: text keys to values.
class QVCORE_EXPORT IQVDynamicStore {
 public:
  virtual ~IQVDynamicStore() = default;

  /// Adds all variables of the other store, in its order; values are shared. Null does nothing.
  virtual void addData(const std::shared_ptr<QVDynamicStore>& other) = 0;
  /// Stores the value under the key. A null key or a nil value does nothing.
  virtual void addDataWithValue(const QVPlatform::String& key, const QVPlatform::Value& value) = 0;
  /// The value, or nil.
  virtual QVPlatform::Value getData(const QVPlatform::String& key) const = 0;
  /// Removes the variable and returns its value, or nil if there was none.
  virtual QVPlatform::Value removeData(const QVPlatform::String& key) = 0;
  /// Removes everything.
  virtual void clearData() = 0;
};

/// Variables in the order in which their keys were first added; a value that is replaced keeps its
/// place. It can be archived ("QVDynamicStore" in the class registry).
///
/// Threads: every operation may be called from any thread and is atomic by itself: a merge reads
/// the other store at one moment, and adds all of it at another.
class QVCORE_EXPORT QVDynamicStore : public QVPlatform::Object,
                                     public QVPlatform::Coding,
                                     public IQVDynamicStore {
 public:
  /// Makes both containers, empty. Returns the receiver. A bare store has none: it keeps nothing
  /// and holds nothing.
  std::shared_ptr<QVDynamicStore> init();

  void addData(const std::shared_ptr<QVDynamicStore>& other) override;
  void addDataWithValue(const QVPlatform::String& key, const QVPlatform::Value& value) override;
  QVPlatform::Value getData(const QVPlatform::String& key) const override;
  QVPlatform::Value removeData(const QVPlatform::String& key) override;
  void clearData() override;

  /// Writes both containers, under "dynamicStore" and "orderedKeys".
  void encodeWithCoder(QVPlatform::KeyedArchiver& coder) const override;
  /// Takes both containers as they are decoded; one that is missing stays null.
  void initWithCoder(QVPlatform::KeyedUnarchiver& coder) override;

  /// One line "key : value" for each variable, in order.
  QVPlatform::String debugDescription() const;

  /// The containers themselves: key to value, and the keys in order. What is changed in them
  /// directly is not kept in step.
  QVPlatform::Dictionary dynamicStore() const;
  void setDynamicStore(QVPlatform::Dictionary store);
  QVPlatform::Array orderedKeys() const;
  void setOrderedKeys(QVPlatform::Array keys);

 private:
  struct Content {
    QVPlatform::Dictionary values;
    QVPlatform::Array keys;
  };

  Content content() const;
  /// Returns the earlier value, or nil.
  QVPlatform::Value replace(const QVPlatform::String& key, const QVPlatform::Value& value)
      QV_REQUIRES(mutex_);

  mutable QVPlatform::ForkMutex mutex_;
  QVPlatform::Dictionary dynamicStore_ QV_GUARDED_BY(mutex_);
  QVPlatform::Array orderedKeys_ QV_GUARDED_BY(mutex_);
};
