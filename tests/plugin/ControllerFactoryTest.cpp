// Which panel each algorithm of the library gets. That a form sets the parameters is tested with the form.

#include "Core/Parameter.h"
#include "Gui/DefaultAlgorithmController.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginManager.h"
#include "Stream/ImageStream.h"
#include "plugin/PlaneWaves.h"

#include <QtTest>

#include <gtest/gtest.h>

namespace Kelvaris {
namespace {

std::unique_ptr<Algorithm> create(const std::string& id, const DataList& data) {
  return FactoryRegistry::get().algorithmDescriptor("USImgFormation." + id, false)->create(data);
}

TEST(ControllerFactoryTest, AlgorithmsHaveFormsThatSetThemAtOnce) {
  PluginManager::get().load(PLUGIN_FILE);
  SharedImageSet images;
  images.setModality(Data::Ultrasound);
  images.setVolumetric(true);
  images.elementwiseComponents().components(0).add(Tests::planeWaves());
  images.add(std::make_shared<SharedImage>(
      std::shared_ptr<Image>(MemImage::create(ImageDescriptor(PixelInt16, 16, 20, 2, 1)))));
  for (const char* id : {"Beamforming", "ChannelDataFilter", "ChannelDataRemapping", "EnvelopeDetection",
                         "LogCompression", "IqDemodulation"}) {
    const auto algorithm = create(id, {&images});
    ASSERT_NE(algorithm, nullptr) << id;
    const auto controller = FactoryRegistry::get().createAlgorithmController(algorithm.get());
    auto* const form = dynamic_cast<DefaultAlgorithmController*>(controller.get());
    ASSERT_NE(form, nullptr) << id;
    EXPECT_TRUE(form->configureOnChanged() && !form->closesWhenDone() && !form->computesAtOnce()) << id;
    EXPECT_EQ(form->title(), algorithm->factoryInfo().displayName);
    form->show();
    for (const ParameterBase* parameter : algorithm->parameters())
      EXPECT_NE(form->findChild<QWidget*>(QString::fromStdString("editor_" + parameter->name())), nullptr) << id;
  }
  images.removeImages(); // and with them the acquisition, whose code lies in the library
  EXPECT_NO_THROW(PluginManager::get().unload("Kelvaris.USImgFormation")) << "nothing of the form may hold it";
}

TEST(ControllerFactoryTest, StreamsHavePanelsOfTheirOwn) {
  PluginManager::get().load(PLUGIN_FILE);
  {
    ImageStream input("input");
    for (const auto& [id, data, panel] :
         {std::tuple{"CreateStreamIoSimulatedChannelData", DataList(), "SimulatedChannelDataStreamController"},
          std::tuple{"SingleImageStreamAlgorithmExecutor", DataList{&input},
                     "SingleImageStreamAlgorithmExecutorController"}}) {
      const auto algorithm = create(id, data);
      const auto controller = FactoryRegistry::get().createAlgorithmController(algorithm.get());
      EXPECT_EQ(dynamic_cast<Controller&>(*controller).widget()->metaObject()->className(),
                std::string("Kelvaris::US::") + panel);
    }
  }
  EXPECT_NO_THROW(PluginManager::get().unload("Kelvaris.USImgFormation"));
}

} // namespace
} // namespace Kelvaris
