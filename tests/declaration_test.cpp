#include "declaration.h"

#include <gtest/gtest.h>

namespace {

using qpxhost::ParseDeclaration;
using qpxhost::ValueType;

TEST(Declaration, ParsesParametersDefaultsAndResult) {
  auto d = ParseDeclaration(
      "ScaleQPX(width as integer, height as integer, AntiAlias as boolean=false, YieldTicks as "
      "integer=0) as picture");
  EXPECT_EQ(d.name, "ScaleQPX");
  ASSERT_EQ(d.parameters.size(), 4u);
  EXPECT_EQ(d.parameters[0].name, "width");
  EXPECT_EQ(d.parameters[0].type, ValueType::Integer);
  EXPECT_FALSE(d.parameters[0].defaultValue.has_value());
  EXPECT_EQ(d.parameters[2].type, ValueType::Boolean);
  EXPECT_EQ(std::get<bool>(*d.parameters[2].defaultValue), false);
  EXPECT_EQ(std::get<int32_t>(*d.parameters[3].defaultValue), 0);
  EXPECT_EQ(d.result, ValueType::Picture);
}

TEST(Declaration, TypesAreCaseInsensitive) {
  auto d = ParseDeclaration("F(p As Picture, d AS Double = -2.5) As Boolean");
  ASSERT_EQ(d.parameters.size(), 2u);
  EXPECT_EQ(d.parameters[0].type, ValueType::Picture);
  EXPECT_EQ(std::get<double>(*d.parameters[1].defaultValue), -2.5);
  EXPECT_EQ(d.result, ValueType::Boolean);
}

TEST(Declaration, MethodWithoutParametersOrResult) {
  auto d = ParseDeclaration("Refresh()");
  EXPECT_EQ(d.name, "Refresh");
  EXPECT_TRUE(d.parameters.empty());
  EXPECT_FALSE(d.result.has_value());
}

TEST(Declaration, RejectsWhatItCannotCall) {
  EXPECT_THROW(ParseDeclaration("NoParens"), std::invalid_argument);
  EXPECT_THROW(ParseDeclaration("F(x as string)"), std::invalid_argument);
  EXPECT_THROW(ParseDeclaration("F(x)"), std::invalid_argument);
  EXPECT_THROW(ParseDeclaration("F(x as integer) returns picture"), std::invalid_argument);
}

}  // namespace
