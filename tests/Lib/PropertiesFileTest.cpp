#include "Lib/PropertiesFile.h"

#include "support/ErrorOf.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Kelvaris {
namespace {

using Tests::errorOf;

TEST(PropertiesFile, ComesBackAndSaysInWhichFileTheFaultLies) {
  const Tests::TemporaryFolder folder;
  Properties properties;
  properties.setParam("delays", std::vector<double>{1.0 / 3.0, std::nan(""), -0.0});
  properties.addSubProperties("event").setParam("name", "<&>\n");
  PropertiesFile::save(folder / "a.xml", Properties());
  PropertiesFile::save(folder / "a.xml", properties);
  EXPECT_EQ(PropertiesFile::load(folder / "a.xml"), properties);
  EXPECT_EQ(folder.names(), std::vector<std::string>{"a.xml"});

  Tests::writeFile(folder / "broken.xml", "<properties><param/></properties>");
  Tests::writeFile(folder / "empty.xml", "");
  for (const char* name : {"missing.xml", "broken.xml", "empty.xml"})
    EXPECT_CONTAINS(errorOf<std::runtime_error>([&] { PropertiesFile::load(folder / name); }), name);
  EXPECT_CONTAINS(errorOf<std::runtime_error>([&] { PropertiesFile::save(folder / "no/a.xml", properties); }),
                  "no/a.xml");
}

} // namespace
} // namespace Kelvaris
