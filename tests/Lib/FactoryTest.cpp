#include "Core/Parameter.h"
#include "Lib/FactoryRegistry.h"

#include "Lib/SharedImageSet.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <typeindex>

namespace Kelvaris {
namespace {

/// Takes exactly one element.
class Gain : public Algorithm {
public:
  Gain() { registerParameter(&gain); }
  static bool createCompatible(const DataList& data, Algorithm** a) {
    if (data.size() != 1) return false;
    if (a) *a = std::make_unique<Gain>().release();
    return true;
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }

  Parameter<double> gain{"gain", 1.0};
};

struct Factory : AlgorithmFactory {
  explicit Factory(const std::string& name) : AlgorithmFactory(name) {
    Properties loud;
    loud.setParam("gain", 8.0);
    registerAlgorithm<Gain>("Gain", "Signal;Simple;Gain");
    registerAlgorithm<Gain>("Loud", "Signal;Loud Gain", Descriptor::Expert, loud);
  }
};

struct FactoryMade : AlgorithmController {
  using AlgorithmController::AlgorithmController;
};

struct Controllers : AlgorithmControllerFactory {
  Controllers() : AlgorithmControllerFactory("Controllers") {}
  std::unique_ptr<AlgorithmController> create(Algorithm* algorithm) const override {
    return std::make_unique<FactoryMade>(algorithm);
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
  EXPECT_TRUE(log.contains("3 AlgorithmFactory: Algorithm already registered: Test.Gain"));
  EXPECT_TRUE(log.contains("3 AlgorithmFactory: No algorithm Test.Absent to be given the name \"Other Name\""));
  ASSERT_EQ(factory.algorithmDescriptors().size(), 2u);
  EXPECT_EQ(factory.algorithmDescriptor("Test.Gain")->category, "Signal;Simple;Gain");
}

TEST(AlgorithmFactoryTest, CreatesFromStoredSettings) {
  const Factory factory("Test");
  SharedImageSet images;
  EXPECT_EQ(factory.idOf(typeid(Gain)), "Test.Gain");
  const auto loud = factory.instantiateAlgorithm("Test.Loud", {&images});
  EXPECT_EQ(dynamic_cast<const Gain&>(*loud).gain.value(), 8.0);
  EXPECT_EQ(loud->factoryInfo().data, std::vector<const Data*>{&images});
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
  registry.setDefaultControllerMaker([](Algorithm* a) { return std::make_unique<AlgorithmController>(a); });
  EXPECT_NE(dynamic_cast<FactoryMade*>(registry.createAlgorithmController(&gain).get()), nullptr);
  registry.remove(&other);
  const auto byDefault = registry.createAlgorithmController(&gain);
  EXPECT_TRUE(byDefault && !dynamic_cast<FactoryMade*>(byDefault.get()));
  registry.setDefaultControllerMaker(nullptr);
  EXPECT_EQ(registry.createAlgorithmController(&gain), nullptr);
  EXPECT_FALSE(registry.algorithmDescriptor("B.Gain", false));
  registry.remove(&owner);
  EXPECT_TRUE(registry.algorithmDescriptors().empty());
  EXPECT_THROW(registry.createAlgorithmController(nullptr), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris
