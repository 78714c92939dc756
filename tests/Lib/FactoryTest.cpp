#include "Lib/AlgorithmFactory.h"
#include "Lib/DefaultAlgorithmController.h"
#include "Lib/FactoryRegistry.h"

#include "Lib/SharedImageSet.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeindex>

namespace Kelvaris {
namespace {

/// Takes exactly one element.
class Gain : public Algorithm {
public:
  Gain() {
    registerParameter(&gain);
    registerParameter(&offset);
    gain.setAttribute("suffix", "dB");
  }
  static bool createCompatible(const DataList& data, Algorithm** a) {
    if (data.size() != 1) return false;
    if (a) *a = std::make_unique<Gain>().release();
    return true;
  }
  void configure(const Properties* properties) override {
    ++configured;
    Algorithm::configure(properties);
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }

  Parameter<double> gain{"gain", 1.0};
  Parameter<bool> offset{"offset", false};
  int configured = 0;
};

struct Factory : AlgorithmFactory {
  explicit Factory(const std::string& name) : AlgorithmFactory(name) {
    Properties loud;
    loud.setParam("gain", 8.0);
    registerAlgorithm<Gain>("Gain", "Signal;Simple;Gain");
    registerAlgorithm<Gain>("Loud", "Signal;Loud Gain", Descriptor::Expert, loud);
  }
};

struct Controllers : AlgorithmControllerFactory {
  Controllers() : AlgorithmControllerFactory("Controllers") {}
  std::unique_ptr<AlgorithmController> create(Algorithm* algorithm) const override {
    return std::make_unique<DefaultAlgorithmController>(algorithm, "from the factory", true, true);
  }
};

TEST(AlgorithmFactoryTest, RefusesAliasesOfNothingAndSecondRegistrations) {
  struct Misled : Factory {
    Misled() : Factory("Test") {
      registerAlgorithm<Gain>("Gain", "Other");
      addAlias("Absent", "Other Name");
    }
  };
  const Tests::ExpectedLog log;
  const Misled factory;
  EXPECT_EQ(log.messages(), (std::vector<std::string>{
                                "3 AlgorithmFactory: Algorithm already registered: Test.Gain",
                                "3 AlgorithmFactory: No algorithm Test.Absent to be given the name \"Other Name\""}));
  ASSERT_EQ(factory.algorithmDescriptors().size(), 2u);
  EXPECT_EQ(factory.algorithmDescriptor("Test.Gain")->category, "Signal;Simple;Gain");
}

TEST(AlgorithmFactoryTest, CreatesFromStoredSettings) {
  const Factory factory("Test");
  SharedImageSet images;
  EXPECT_EQ(factory.idOf(typeid(Gain)), "Test.Gain");
  const auto gain = factory.instantiateAlgorithm("Test.Gain", {&images});
  ASSERT_NE(gain, nullptr);
  EXPECT_EQ(gain->factoryInfo().data, std::vector<const Data*>{&images});
  EXPECT_EQ(dynamic_cast<const Gain&>(*gain).configured, 0);
  const auto loud = factory.instantiateAlgorithm("Test.Loud", {&images});
  EXPECT_EQ(dynamic_cast<const Gain&>(*loud).gain.value(), 8.0);
  EXPECT_EQ(factory.instantiateAlgorithm("Test.Gain", {}), nullptr);
}

TEST(FactoryRegistryTest, FindsAlgorithmsAndControllersUntilTheirOwnerGoes) {
  FactoryRegistry& registry = FactoryRegistry::get();
  const int owner = 0, other = 0;
  registry.add(std::make_unique<Factory>("A"), nullptr, &owner);
  registry.add(std::make_unique<Factory>("B"), std::make_unique<Controllers>(), &other);
  SharedImageSet images;
  EXPECT_EQ(registry.compatibleDescriptors({&images}).size(), 4u);
  EXPECT_TRUE(registry.compatibleDescriptors({}).empty());
  EXPECT_EQ(registry.algorithmDescriptor("Loud Gain", true)->id, "A.Loud") << "the first of that name";
  EXPECT_FALSE(registry.algorithmDescriptor("Loud Gain", false));

  Gain gain;
  const auto title = [&] {
    return dynamic_cast<const DefaultAlgorithmController&>(*registry.createAlgorithmController(&gain)).title();
  };
  EXPECT_EQ(title(), "from the factory");
  registry.remove(&other);
  EXPECT_EQ(title(), "") << "the generic form; this algorithm came from no factory";
  EXPECT_FALSE(registry.algorithmDescriptor("B.Gain", false));
  registry.remove(&owner);
  EXPECT_TRUE(registry.algorithmDescriptors().empty());
  EXPECT_THROW(registry.createAlgorithmController(nullptr), std::invalid_argument);
}

TEST(DefaultAlgorithmControllerTest, HoldsTheFormUntilItIsApplied) {
  Gain algorithm;
  DefaultAlgorithmController form(&algorithm, "", false, true);
  ASSERT_EQ(form.fields().size(), 2u);
  EXPECT_EQ(form.fields()[0].text, "1");
  EXPECT_EQ(form.fields()[0].type, ParameterType::Double);
  EXPECT_EQ(form.fields()[0].attributes.at("suffix"), "dB");

  form.setText("gain", "2.50");
  EXPECT_EQ(algorithm.gain.value(), 1.0);
  algorithm.offset = true; // by someone else, meanwhile
  form.apply();
  EXPECT_EQ(algorithm.gain.value(), 2.5);
  EXPECT_TRUE(algorithm.offset.value()) << "only edited fields are handed over";
  EXPECT_EQ(form.fields()[1].text, "true");

  form.setText("gain", "9");
  form.refresh();
  EXPECT_EQ(form.fields()[0].text, "2.5");
  form.setConfigureOnChanged(true);
  algorithm.configured = 0;
  form.setText("gain", "3");
  EXPECT_EQ(algorithm.configured, 1);
  EXPECT_EQ(algorithm.gain.value(), 3.0);
}

TEST(DefaultAlgorithmControllerTest, RefusesUnknownKeysAndUnreadableTexts) {
  Gain algorithm;
  DefaultAlgorithmController form(&algorithm, "Gain", false, false);
  form.setConfigureOnChanged(true);
  const struct {
    const char* key;
    const char* text;
    const char* message;
  } cases[] = {{"gian", "1", "There is no parameter \"gian\"; there is \"gain\", \"offset\""},
               {"gain", "loud", "\"loud\" is no value of the parameter \"gain\", which takes a number"},
               {"offset", "2", "\"2\" is no value of the parameter \"offset\", which takes true or false"}};
  for (const auto& c : cases)
    EXPECT_EQ(Tests::errorOf<std::invalid_argument>([&] { form.setText(c.key, c.text); }), c.message);
  EXPECT_EQ(algorithm.configured, 0);
  EXPECT_THROW(DefaultAlgorithmController(nullptr, "", false, false), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris
