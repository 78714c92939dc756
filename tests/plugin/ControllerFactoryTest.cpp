// Which panel each algorithm of the library gets.

#include "Core/Parameter.h"
#include "Gui/DefaultAlgorithmController.h"
#include "Lib/FactoryRegistry.h"
#include "Lib/PluginManager.h"
#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"
#include "plugin/PlaneWaves.h"

#include <QtTest>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace Kelvaris {
namespace {

/// What the user changes, by the keyboard, and what the algorithm has then.
struct Form {
  const char* id;
  bool atOnce; ///< a change reaches the algorithm by itself
  std::vector<std::string> typed;
  std::vector<std::string> values;
};
std::ostream& operator<<(std::ostream& stream, const Form& form) {
  return stream << form.id;
}

class ControllerFactory : public ::testing::TestWithParam<Form> {};

TEST_P(ControllerFactory, GivesEveryAlgorithmAFormThatSetsIt) {
  PluginManager::get().load(PLUGIN_FILE);
  {
    SharedImageSet images;
    images.setModality(Data::Ultrasound);
    images.setVolumetric(true);
    images.elementwiseComponents().components(0).add(Tests::planeWaves());
    images.add(std::make_shared<SharedImage>(
        std::shared_ptr<Image>(MemImage::create(ImageDescriptor(PixelInt16, 16, 20, 2, 1)))));
    const auto algorithm = FactoryRegistry::get().algorithmDescriptor(GetParam().id, false)->create({&images});
    ASSERT_NE(algorithm, nullptr);
    const auto controller = FactoryRegistry::get().createAlgorithmController(algorithm.get());
    auto* const form = dynamic_cast<DefaultAlgorithmController*>(controller.get());
    ASSERT_NE(form, nullptr);
    EXPECT_EQ(form->configureOnChanged(), GetParam().atOnce);
    EXPECT_EQ(form->title(), algorithm->factoryInfo().displayName);
    EXPECT_FALSE(form->closesWhenDone() || form->computesAtOnce());

    form->show();
    QApplication::setActiveWindow(form);
    std::vector<std::string> values;
    const auto& parameters = algorithm->parameters();
    ASSERT_EQ(parameters.size(), GetParam().typed.size());
    for (std::size_t i = 0; i < parameters.size(); ++i) {
      auto* const editor = form->findChild<QWidget*>(QString::fromStdString("editor_" + parameters[i]->name()));
      ASSERT_NE(editor, nullptr) << parameters[i]->name();
      editor->setFocus();
      QWidget* const focused = QApplication::focusWidget();
      ASSERT_NE(focused, nullptr);
      if (parameters[i]->type() != ParameterType::Enum) QTest::keyClick(focused, Qt::Key_A, Qt::ControlModifier);
      QTest::keyClicks(focused, QString::fromStdString(GetParam().typed[i]));
      QTest::keyClick(focused, Qt::Key_Tab);
    }
    form->apply();
    for (const ParameterBase* parameter : parameters)
      values.push_back(parameter->text());
    EXPECT_EQ(values, GetParam().values);
  }
  EXPECT_NO_THROW(PluginManager::get().unload("Kelvaris.USImgFormation")) << "nothing of the form may hold it";
}

TEST(ControllerFactoryTest, StreamsHavePanelsOfTheirOwn) {
  PluginManager::get().load(PLUGIN_FILE);
  {
    ImageStream input("input");
    for (const auto& [id, data, panel] :
         {std::tuple{"USImgFormation.CreateStreamIoSimulatedChannelData", DataList(),
                     "Kelvaris::US::SimulatedChannelDataStreamController"},
          std::tuple{"USImgFormation.SingleImageStreamAlgorithmExecutor", DataList{&input},
                     "Kelvaris::US::SingleImageStreamAlgorithmExecutorController"}}) {
      const auto algorithm = FactoryRegistry::get().algorithmDescriptor(id, false)->create(data);
      ASSERT_NE(algorithm, nullptr);
      const auto controller = FactoryRegistry::get().createAlgorithmController(algorithm.get());
      EXPECT_STREQ(dynamic_cast<Controller&>(*controller).widget()->metaObject()->className(), panel);
    }
  }
  EXPECT_NO_THROW(PluginManager::get().unload("Kelvaris.USImgFormation"));
}

INSTANTIATE_TEST_SUITE_P(
    Algorithms, ControllerFactory,
    ::testing::Values(
        Form{"USImgFormation.Beamforming",
             true,
             {"1.55", " ", "300", "0.05", "H"},
             {"1.55", "false", "300 512", "0.05", "1"}},
        Form{"USImgFormation.ChannelDataFilter", true, {"L", "2.125", "7.0625", "33"}, {"0", "2.125", "7.0625", "33"}},
        Form{"USImgFormation.ChannelDataRemapping", true, {}, {}},
        Form{"USImgFormation.EnvelopeDetection",
             true,
             {"40", "5", "2", " ", "60", "1e4", " "},
             {"40", "5", "2", "false", "60", "10000", "false"}},
        Form{"USImgFormation.LogCompression", true, {"45.5", "0.25", " "}, {"45.5", "0.25", "false"}},
        Form{"USImgFormation.IqDemodulation", true, {"20", "6.66666667", "4"}, {"20", "6.66666667", "4"}}),
    [](const auto& tested) { return std::string(tested.param.id).substr(std::string(tested.param.id).find('.') + 1); });

} // namespace
} // namespace Kelvaris
