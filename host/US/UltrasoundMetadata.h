#pragma once

#include "Lib/DataComponent.h"

namespace Kelvaris::US {

/// How an ultrasound image was made: the settings that a scanner shows beside its picture. Zero stands for "not known".
class UltrasoundMetadata : public DataComponent<UltrasoundMetadata> {
public:
  int scanMode = 0;        ///< the host's number of the imaging mode; 6 for frames formed from channel data
  int persistence = 1;     ///< the scanner's level of averaging over frames; 0 where each image is of one frame alone
  int numColumns = 0;      ///< lines of the pre-scan image
  int numRows = 0;         ///< samples of a line
  double depthStart = 0.0; ///< mm
  double depthEnd = 0.0;   ///< mm
  double focalDepth = 0.0; ///< mm; 0 for unfocused waves
  double pulseFrequency = 0.0; ///< Hz
  double speedOfSound = 0.0;   ///< mm/s
  bool scanConverted = false;  ///< whether the image is Cartesian already

  std::string id() const override { return "UltrasoundMetadata"; }

  /// All fields exactly equal.
  bool operator==(const UltrasoundMetadata& other) const;

  /// Missing keys leave their fields as they are. If a stored value can't be read, an error is logged and nothing
  /// changes.
  void configure(const Properties* properties) override;
  void configuration(Properties* properties) const override;
};

} // namespace Kelvaris::US
