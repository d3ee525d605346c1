#include <array>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "gtest/gtest.h"
#include "tests/support/RowName.h"
#include "tests/toolsmisc/Intercept.h"
#include "toolsmisc/Text.h"

namespace {

using toolsmisc::doubleToString;
using toolsmisc::floatToString;
using toolsmisc::formatSignificant;
using toolsmisc::intToString;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kSmallestDouble = std::numeric_limits<double>::denorm_min();
constexpr double kLargestDouble = std::numeric_limits<double>::max();

struct RadixRow {
    const char* why;
    int value;
    int radix;
    bool upperCase;
    const char* text;
};
class IntToString : public testing::TestWithParam<RadixRow> {};
TEST_P(IntToString, GivesTheDigits) {
    EXPECT_EQ(intToString(GetParam().value, GetParam().radix, GetParam().upperCase), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, IntToString,
    testing::Values(RadixRow{"lowerCase", 255, 16, false, "ff"}, RadixRow{"upperCase", 255, 16, true, "FF"},
                    RadixRow{"negative", -10, 2, false, "-1010"}, RadixRow{"zero", 0, 10, false, "0"},
                    RadixRow{"zeroUpperCase", 0, 36, true, "0"}, RadixRow{"one", 1, 10, false, "1"},
                    RadixRow{"tens", 120, 10, false, "120"}, RadixRow{"largest", INT_MAX, 10, false, "2147483647"},
                    RadixRow{"mostNegative", INT_MIN, 10, false, "-2147483648"},
                    RadixRow{"mostNegativeHexadecimal", INT_MIN, 16, false, "-80000000"},
                    RadixRow{"mostNegativeBinary", INT_MIN, 2, false, "-10000000000000000000000000000000"},
                    RadixRow{"lastDigit", 35, 36, false, "z"}, RadixRow{"lastDigitUpperCase", 35, 36, true, "Z"},
                    RadixRow{"radixItself", 36, 36, false, "10"}, RadixRow{"smallestRadix", 5, 2, false, "101"},
                    RadixRow{"letters", 0x2BCDEF, 16, false, "2bcdef"},
                    RadixRow{"negativeUpperCase", -48879, 16, true, "-BEEF"}, RadixRow{"radixOne", 5, 1, false, ""},
                    RadixRow{"radixZero", 5, 0, false, ""}, RadixRow{"radixNegative", 5, -16, false, ""},
                    RadixRow{"radixTooLarge", 5, 37, false, ""}, RadixRow{"zeroInAWrongRadix", 0, 1, false, ""}),
    RowName());

TEST(IntToString, KnowsEveryDigitInItsPlace) {
    const std::string lower = "0123456789abcdefghijklmnopqrstuvwxyz";
    const std::string upper = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (int digit = 0; digit < 36; ++digit) {
        const auto place = static_cast<std::size_t>(digit);
        EXPECT_EQ(intToString(digit, 36, false), lower.substr(place, 1));
        EXPECT_EQ(intToString(digit, 36, true), upper.substr(place, 1));
    }
}

TEST(IntToString, AgreesWithTheStandardLibrary) {
    std::mt19937 random(62);
    for (int round = 0; round < 20'000; ++round) {
        const int value = static_cast<int>(random()) >> (random() % 32);
        const int radix = 2 + static_cast<int>(random() % 35);
        std::array<char, 40> text{};
        std::to_chars(text.data(), text.data() + text.size(), value, radix);
        ASSERT_EQ(intToString(value, radix, false), text.data()) << value << ' ' << radix;
    }
}

struct FixedRow {
    const char* why;
    double value;
    int precision;
    int width;
    const char* text;
};
class DoubleToString : public testing::TestWithParam<FixedRow> {};
TEST_P(DoubleToString, PrintsAtMost38Characters) {
    EXPECT_EQ(doubleToString(GetParam().value, GetParam().precision, GetParam().width), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, DoubleToString,
    testing::Values(
        FixedRow{"ordinary", 3.14159, 2, 8, "    3.14"}, FixedRow{"widthComesFirst", 3.14159, 8, 2, "3.14159000"},
        FixedRow{"noWidth", 3.14159, 3, 0, "3.142"}, FixedRow{"noDecimals", 2.5, 0, 0, "2"},
        FixedRow{"negative", -1.5, 1, 6, "  -1.5"}, FixedRow{"widthSmallerThanText", 123.0, 1, 3, "123.0"},
        FixedRow{"negativeWidthPadsRight", 3.14159, 2, -8, "3.14    "},
        FixedRow{"negativePrecisionIsSix", 3.14159, -1, 0, "3.141590"},
        FixedRow{"mostNegativePrecisionIsSix", 3.14159, INT_MIN, 0, "3.141590"},
        FixedRow{"exactly38Characters", 1.0, 36, 0, "1.000000000000000000000000000000000000"},
        FixedRow{"the39thCharacterIsCut", 1.0, 37, 0, "1.000000000000000000000000000000000000"},
        FixedRow{"width38", 1.0, 1, 38, "                                   1.0"},
        FixedRow{"width39", 1.0, 1, 39, "                                    1."},
        FixedRow{"width40", 1.0, 1, 40, "                                     1"},
        FixedRow{"width41", 1.0, 1, 41, "                                      "},
        FixedRow{"largestWidth", 1.0, 1, INT_MAX, "                                      "},
        FixedRow{"mostNegativeWidth", 1.0, 1, INT_MIN, "1.0                                   "},
        FixedRow{"largestPrecision", 0.5, INT_MAX, 0, "0.500000000000000000000000000000000000"},
        FixedRow{"largestPrecisionMostNegativeWidth", 0.5, INT_MAX, INT_MIN, "0.500000000000000000000000000000000000"},
        FixedRow{"largestBoth", 0.5, INT_MAX, INT_MAX, "0.500000000000000000000000000000000000"},
        FixedRow{"precisionOneBelowTheWidth", 0.5, INT_MAX - 1, INT_MAX, "0.500000000000000000000000000000000000"},
        FixedRow{"precisionTwoBelowTheWidth", 0.5, INT_MAX - 2, INT_MAX, "0.500000000000000000000000000000000000"},
        FixedRow{"precisionThreeBelowTheWidth", 0.5, INT_MAX - 3, INT_MAX, " 0.50000000000000000000000000000000000"},
        FixedRow{"precisionThirtyBelowTheWidth", 0.5, 4970, 5000, "                            0.50000000"},
        FixedRow{"largestValue", kLargestDouble, 2, 0, "17976931348623157081452742373170435679"},
        FixedRow{"largestValueWide", -kLargestDouble, 1074, 1400, "               -1797693134862315708145"},
        FixedRow{"smallestValue", kSmallestDouble, 100, 0, "0.000000000000000000000000000000000000"},
        FixedRow{"infinity", kInfinity, 2, 6, "   inf"}, FixedRow{"minusInfinity", -kInfinity, 2, 0, "-inf"},
        FixedRow{"infinityIgnoresThePrecision", kInfinity, INT_MAX, 5, "  inf"},
        FixedRow{"notANumber", kNaN, 2, 5, "  nan"}, FixedRow{"minusZero", -0.0, 1, 0, "-0.0"}),
    RowName());

TEST(DoubleToString, IsEmptyWhenPrintfReportsAnError) {
    intercept::FormattedLengths script({-1});
    EXPECT_EQ(doubleToString(1.0, 1, 0), "");
    EXPECT_TRUE(script.results.empty());
}

TEST(FloatToString, PrintsTheValueWidenedToDouble) {
    EXPECT_EQ(floatToString(3.14159F, 2, 8), "    3.14");
    EXPECT_EQ(floatToString(0.1F, 12, 0), "0.100000001490");
    EXPECT_EQ(floatToString(-2.5F, 1, -6), "-2.5  ");
    EXPECT_EQ(floatToString(1.0F, 50, 0), "1.000000000000000000000000000000000000");
    EXPECT_EQ(floatToString(std::numeric_limits<float>::max(), 1, 0), "34028234663852885981170418348451692544");
}

struct SignificantRow {
    const char* why;
    double value;
    int significantDigits;
    int decimals;
    unsigned maxWidth;
    const char* text;
};
class FormatSignificant : public testing::TestWithParam<SignificantRow> {};
TEST_P(FormatSignificant, RoundsAndFits) {
    const SignificantRow& row = GetParam();
    EXPECT_EQ(formatSignificant(row.value, row.significantDigits, row.decimals, row.maxWidth), row.text);
}
INSTANTIATE_TEST_SUITE_P(
    WholeNumbers, FormatSignificant,
    testing::Values(SignificantRow{"addsAndTruncates", 12345.6, 3, 1, 10, "12346"},
                    SignificantRow{"halfIsNotEnough", 12345.5, 3, 1, 10, "12345"},
                    SignificantRow{"addendIsALittleMoreThan49Hundredths", 1234.51, 3, 1, 10, "1235"},
                    SignificantRow{"addendBelow", 12345.50, 3, 1, 10, "12345"},
                    SignificantRow{"addendIsNotLarger", 100.50999999, 2, 1, 10, "100"},
                    SignificantRow{"addendIsNotSmaller", 100.509999995, 2, 1, 10, "101"},
                    SignificantRow{"asManyDigitsAsMagnitude", 12345.6, 4, 1, 10, "12346"},
                    SignificantRow{"oneDigitMoreThanMagnitude", 12345.6, 5, 1, 10, "12346.0"},
                    SignificantRow{"addsAlsoToNegativeValues", -12345.6, 3, 1, 10, "-12345"},
                    SignificantRow{"negativeBelowOneIsNoMinusZero", -1.2, 0, 1, 10, "0"},
                    SignificantRow{"noDigitsWanted", 1.2, 0, 1, 10, "1"},
                    SignificantRow{"negativeDigitsWanted", 7.9, -5, 1, 10, "8"},
                    SignificantRow{"largestInt", 2147483647.0, 3, 0, 10, "2147483647"},
                    SignificantRow{"beyondInt", 2147483648.0, 3, 0, 10, "2147483648"},
                    SignificantRow{"belowInt", -3000000000.0, 3, 0, 11, "-2999999999"},
                    SignificantRow{"beyond64Bits", 1e20, 3, 0, 30, "100000000000000000000"},
                    SignificantRow{"cutAt38Characters", 1e40, 3, 0, 50, "10000000000000000303786028427003666890"},
                    SignificantRow{"largestDouble", kLargestDouble, 3, 0, 10, "2e+308"}),
    RowName());
INSTANTIATE_TEST_SUITE_P(
    Rounded, FormatSignificant,
    testing::Values(SignificantRow{"smallValue", 0.012345, 3, 5, 10, "0.01230"},
                    SignificantRow{"smallValueGeneral", 0.012345, 3, -1, 10, "0.0123"},
                    SignificantRow{"mostNegativeDecimalsIsGeneral", 0.012345, 3, INT_MIN, 10, "0.0123"},
                    SignificantRow{"generalOfALargeValue", 1234567.0, 8, -1, 20, "1.23457e+06"},
                    SignificantRow{"exactlyOneIsNotLarge", 1.0, 0, 2, 10, "1.00"},
                    SignificantRow{"justAboveOneIsLarge", 1.0000000000000002, 0, 2, 10, "1"},
                    SignificantRow{"minusOne", -1.0, 0, 2, 10, "-1.00"}, SignificantRow{"zero", 0.0, 3, 2, 10, "0.00"},
                    SignificantRow{"minusZero", -0.0, 3, 1, 10, "-0.0"},
                    SignificantRow{"oneDigit", 0.0678, 1, 3, 10, "0.070"},
                    SignificantRow{"zeroDigitsCountAsOne", 0.0678, 0, 3, 10, "0.070"},
                    SignificantRow{"negativeDigitsCountAsOne", 0.0678, -7, 3, 10, "0.070"},
                    SignificantRow{"mostNegativeDigitsCountAsOne", 0.0678, INT_MIN, 3, 10, "0.070"},
                    SignificantRow{"roundsUpToTheNextPower", 9.996, 3, 2, 10, "10.00"},
                    SignificantRow{"noDecimals", 45.67, 3, 0, 10, "46"},
                    SignificantRow{"roundsTwice", 2.449, 2, 0, 10, "2"},
                    SignificantRow{"manyDecimals", 0.5, 1, 50, 50, "0.500000000000000000000000000000000000"},
                    SignificantRow{"largestDecimals", 0.5, 1, INT_MAX, 5, "0.500"},
                    SignificantRow{"thirtyThreeDigitsOfASmallValue", 0.0625, 33, 4, 10, "0.0625"},
                    SignificantRow{"moreDigitsThanFitLoseTheExponent", 0.0625, 40, 4, 10, "6.2500"},
                    SignificantRow{"largestDigitsToo", 0.5, INT_MAX, 2, 10, "5.00"},
                    SignificantRow{"infinity", kInfinity, 3, 2, 10, "inf"},
                    SignificantRow{"minusInfinity", -kInfinity, 3, 2, 10, "-inf"},
                    SignificantRow{"infinityGeneral", kInfinity, -3, -2, 10, "inf"},
                    SignificantRow{"notANumber", kNaN, 3, 2, 10, "nan"},
                    SignificantRow{"smallestDouble", kSmallestDouble, 3, -1, 20, "4.94066e-324"}),
    RowName());
INSTANTIATE_TEST_SUITE_P(TooWide, FormatSignificant,
                         testing::Values(SignificantRow{"exponentAndCut", 123456789.0, 3, 0, 4, "1e+0"},
                                         SignificantRow{"exponentFits", 123456789.0, 3, 0, 5, "1e+08"},
                                         SignificantRow{"exactlyTheWidth", 123456789.0, 3, 0, 9, "123456789"},
                                         SignificantRow{"oneTooWide", 123456789.0, 3, 0, 8, "1e+08"},
                                         SignificantRow{"negative", -123456789.0, 3, 0, 8, "-1e+08"},
                                         SignificantRow{"negativeCut", -123456789.0, 3, 0, 4, "-1e+"},
                                         SignificantRow{"roundedValue", 12.3456, 5, 3, 5, "1e+01"},
                                         SignificantRow{"exponentOfTheValueNotOfItsRounding", 9.46, 2, 5, 5, "9e+00"},
                                         SignificantRow{"exponentOfTheValueWithTheAddend", 94.6, 1, 5, 1, "1"},
                                         SignificantRow{"exponentAfterTheAddend", 14.6, 1, 0, 1, "2"},
                                         SignificantRow{"smallValueIsOnlyCut", 0.012345, 3, 5, 4, "0.01"},
                                         SignificantRow{"oneIsOnlyCut", 1.0, 1, 5, 3, "1.0"},
                                         SignificantRow{"belowOneAfterTheAddendIsOnlyCut", -1.2, 0, 0, 0, ""},
                                         SignificantRow{"widthZero", 123.0, 1, 0, 0, ""},
                                         SignificantRow{"widthOne", 123.0, 5, 1, 1, "1"},
                                         SignificantRow{"largestWidth", 123.0, 5, 1, UINT_MAX, "123.0"},
                                         SignificantRow{"infinityCut", -kInfinity, 3, 2, 3, "-in"}),
                         RowName());

/// The same rules written from decimal digits: no printf, no logarithm.
class SignificantOracle {
public:
    static std::string text(double value, int significantDigits, int decimals, unsigned maxWidth) {
        const bool large = value > 1.0 || value < -1.0;
        std::string result;
        if (large && decimalExponent(value) >= significantDigits) {
            value = value + 0.49000000953674316;
            result = whole(value);
        } else {
            result = rounded(value, std::max(significantDigits, 1), decimals);
        }
        if (result.length() <= maxWidth) return result;
        if (value > 1.0 || value < -1.0) result = printed(value, std::chars_format::scientific, 0);
        result.resize(std::min<std::size_t>(result.length(), maxWidth));
        return result;
    }

    static int decimalExponent(double value) {
        const std::string digits = printed(value, std::chars_format::scientific, 20);
        return std::stoi(digits.substr(digits.find('e') + 1));
    }

private:
    static std::string printed(double value, std::chars_format format, int precision) {
        std::array<char, 1500> room{};
        const auto end = std::to_chars(room.data(), room.data() + room.size(), value, format, precision).ptr;
        return {room.data(), std::min<std::size_t>(static_cast<std::size_t>(end - room.data()), 38)};
    }

    static std::string whole(double value) {
        if (value > -9.2e18 && value < 9.2e18) return std::to_string(static_cast<std::int64_t>(value));
        return printed(value, std::chars_format::fixed, 0);
    }

    static std::string rounded(double value, int digits, int decimals) {
        const std::string text = printed(value, std::chars_format::scientific, digits - 1);
        double back = 0;
        std::from_chars(text.data(), text.data() + text.size(), back);
        if (decimals < 0) return printed(back, std::chars_format::general, 6);
        return printed(back, std::chars_format::fixed, decimals);
    }
};

class RandomSignificant {
public:
    double value() {
        constexpr std::array kBoundaries{0.0,
                                         1.0,
                                         1.0000000000000002,
                                         0.9999999999999999,
                                         0.5,
                                         2.5,
                                         0.05,
                                         12345.5,
                                         2147483647.0,
                                         2147483647.5,
                                         4e9,
                                         1e15,
                                         99999.5,
                                         1.5e300,
                                         9.5,
                                         0.000999951,
                                         1e-300,
                                         10.51,
                                         999.51,
                                         1e18,
                                         9.3e18,
                                         5e-324,
                                         100.5,
                                         1e100};
        const double sign = upTo(1) == 0 ? 1 : -1;
        if (upTo(4) == 0) return sign * kBoundaries[upTo(kBoundaries.size() - 1)];
        if (upTo(2) == 0) return sign * upTo(1'000'000) / 100.0;
        return sign * mantissa(random) * std::pow(10.0, static_cast<double>(upTo(40)) - 20.0);
    }
    unsigned upTo(std::size_t most) { return static_cast<unsigned>(random() % (most + 1)); }
    int around(int from, int to) { return from + static_cast<int>(upTo(static_cast<std::size_t>(to - from))); }

private:
    std::mt19937 random{63};
    std::uniform_real_distribution<double> mantissa{1.0, 9.999};
};

TEST(FormatSignificantOracle, AgreesOnRandomAndBoundaryCases) {
    RandomSignificant random;
    for (int round = 0; round < 60'000; ++round) {
        const double value = random.value();
        const int digits = random.upTo(3) == 0 ? random.around(-3, 50) : random.around(0, 12);
        const int decimals = random.upTo(3) == 0 ? random.around(-3, 50) : random.around(-1, 9);
        const unsigned width = random.upTo(3) == 0 ? random.upTo(60) : random.upTo(14);
        ASSERT_EQ(formatSignificant(value, digits, decimals, width),
                  SignificantOracle::text(value, digits, decimals, width))
            << value << ' ' << digits << ' ' << decimals << ' ' << width;
    }
}

}  // namespace
