#pragma once

#include "Core/Configurable.h"
#include "Core/Progress.h"
#include "Lib/Data.h"
#include "Lib/DataComponent.h"
#include "Lib/SharedImage.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris {

/// One processing step: made for some data, configured, computed, its output taken. The input must outlive it.
class Algorithm : public Configurable {
public:
  enum Status : int { Success = 0, Failure = 1, IncompleteInput = 2, InvalidInput = 3, Canceled = 8 };

  /// How the factory made an algorithm.
  struct FactoryInfo {
    std::string id;
    std::string displayName;
    std::vector<const Data*> data;
  };

  virtual void compute() = 0;
  /// Hands over the output; empty before compute(), after a failed one, and on a second call.
  virtual OwningDataList takeOutput() = 0;
  /// The progress must outlive compute(); null for none.
  virtual void setProgress(Progress* progress) { m_progress = progress; }
  virtual int status() const { return m_status; }
  /// True if the algorithm doesn't need `data` any more.
  virtual bool survivesDataDeletion(const Data* data) const;

  const FactoryInfo& factoryInfo() const { return m_factoryInfo; }
  void setFactoryInfo(FactoryInfo info) { m_factoryInfo = std::move(info); }

protected:
  int m_status = Success;
  Progress* m_progress = nullptr;

private:
  FactoryInfo m_factoryInfo;
};

/// An algorithm that can also work image by image, as on a stream.
class SequentialImageProcessor {
public:
  virtual ~SequentialImageProcessor() = default;

  /// The processed image and its components; a null image and an empty list on failure (the reason is in the log).
  virtual std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const = 0;
  virtual void setSequentialMode(bool sequential) { m_sequential = sequential; }
  virtual bool isSequentialMode() const { return m_sequential; }

private:
  bool m_sequential = false;
};

} // namespace Kelvaris
