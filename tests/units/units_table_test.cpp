// The table that is installed, beside factors as they are published.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "support/kit.hpp"

namespace {

// FROM TO FACTOR, to seven digits: NIST Special Publication 811, appendix B.8; acre, chain, fathom
// and rod: NIST Handbook 44, appendix C, by the foot that all have in common since 2023. The last
// line: the heat units of Roy, Blackwell and Birch, 1968; SI.
constexpr char kPublished[] = R"(
acre m^2 4.046856e3; acrefoot m^3 1.233482e3; amperehour C 3.6e3; angstrom nm 0.1; are m^2 100
astronomicalunit m 1.495979e11; atm Pa 1.01325e5; technicalatmosphere Pa 9.80665e4; bar kPa 100
barn m^2 1e-28; barrel m^3 1.589873e-1; Btu J 1.055056e3; Btu/hour W 2.930711e-1
Btu/lb J/kg 2.326e3; Btu/ft^3 J/m^3 3.725895e4; bushel m^3 3.523907e-2; cal J 4.184
calIT J 4.1868; cal/cm^2 J/m^2 4.184e4; carat g^0*kg 2e-4; centipoise Pa*s 1e-3
centistokes m^2/s 1e-6; chain m 2.01168e1; clo m^2*K/W 1.55e-1; cord m^3 3.624556
cfm m^3/s 4.719474e-4; cfs m^3/s 2.831685e-2; ft^3 m^3 2.831685e-2; inch^3 m^3 1.638706e-5
mile^3 m^3 4.168182e9; yd^3 m^3 7.645549e-1; cup mL 236.5882; curie Bq 3.7e10
darcy m^2 9.869233e-13; day s 8.64e4; debye C*m 3.335641e-30; degree rad 1.745329e-2
dyne N 1e-5; dyn*cm N*m 1e-7; dyn/cm^2 Pa 0.1; eV J 1.602176e-19; erg J 1e-7; erg/s W 1e-7
erg/cm^2/s W/m^2 1e-3; faraday C 9.648534e4; fathom m 1.8288; fermi m 1e-15
floz mL 29.57353; foot m 0.3048; surveyfoot m 3.048006e-1; footcandle lx 1.076391e1
mmwater Pa 9.80665; ft*lbf J 1.355818; ft*lbf/s W 1.355818; ft/hour m/s 8.466667e-5
ft/min m/s 5.08e-3; ft/s^2 m/s^2 0.3048; poundal N 1.382550e-1; ft^2 m^2 9.290304e-2
ft^2/s m^2/s 9.290304e-2; gal m/s^2 1e-2; gallon m^3 3.785412e-3; imperialgallon m^3 4.54609e-3
gallon/day m^3/s 4.381264e-8; gpm L/s 6.309020e-2; gamma T 1e-9; gauss T 1e-4
gilbert A 7.957747e-1; gill L 1.182941e-1; gon rad 1.570796e-2; grain kg 6.479891e-5
gravity m/s^2 9.80665; hectare m^2 1e4; horsepower W 7.456999e2; metrichorsepower W 7.354988e2
electrichorsepower W 746; hundredweight kg 4.535924e1; inch cm 2.54; inHg Pa 3.386389e3
inwater Pa 2.490889e2; inch/s m/s 2.54e-2; kelvin K 1; kgf N 9.80665; kgf*m N*m 9.80665
kgf/cm^2 kPa 98.0665; kgf/mm^2 MPa 9.80665; km/h m/s 2.777778e-1; kW*hour MJ 3.6
kip N 4.448222e3; kip/inch^2 Pa 6.894757e6; knot m/s 5.144444e-1; lambert cd/m^2 3.183099e3
langley J/m^2 4.184e4; lightyear m 9.46073e15; liter m^3 1e-3; lm/ft^2 lx 1.076391e1
maxwell Wb 1e-8; mho S 1; microinch m 2.54e-8; micron m 1e-6; mil mm 2.54e-2
angularmil mrad 9.817477e-1; mile km 1.609344; mi/hour m/s 4.4704e-1; mi/min m/s 2.68224e1
mile^2 km^2 2.589988; mbar Pa 100; mmHg Pa 1.333224e2; arcminute rad 2.908882e-4
minute s 60; oersted A/m 7.957747e1; ounce g^0*kg 2.834952e-2; troyounce kg 3.110348e-2
ozf N 2.780139e-1; oz/ft^2 kg/m^2 3.051517e-1; oz/yd^2 kg/m^2 3.390575e-2; parsec m 3.085678e16
peck L 8.809768; phot lx 1e4; pica mm 4.233333; pint L 4.731765e-1
point mm 3.527778e-1; poise Pa*s 0.1; pound kg 4.535924e-1; poundal/ft^2 Pa 1.488164
lbf N 4.448222; lbf*ft N*m 1.355818; lbf/ft N/m 1.459390e1; lbf/inch N/m 1.751268e2
psf Pa 4.788026e1; psi Pa 6.894757e3; lb/ft^3 kg/m^3 1.601846e1; lb/gallon kg/m^3 1.198264e2
lb/hour kg/s 1.259979e-4; lb/inch^3 kg/m^3 2.767990e4; lb/s kg/s 4.535924e-1
lb/yd^3 kg/m^3 5.932764e-1; quad J 1.055056e18; quart L 9.463529e-1; rem Sv 1e-2
revolution rad 6.283185; rpm rad/s 1.047198e-1; rhe /Pa/s 10; rod m 5.0292
roentgen C/kg 2.58e-4; arcsecond rad 4.848137e-6; section m^2 2.589988e6; slug kg 1.459390e1
slug/ft^3 kg/m^3 5.153788e2; statcoulomb C 3.335641e-10; statvolt V 2.997925e2; stere m^3 1
stilb cd/m^2 1e4; stokes m^2/s 1e-4; tablespoon mL 14.78676; teaspoon mL 4.928922
therm MJ 105.5056; longton kg 1.016047e3; tonrefrigeration W 3.516853e3; tontnt J 4.184e9
tonne kg 1e3; ton kg 9.071847e2; tonf kN 8.896443; torr Pa 1.333224e2; watthour J 3.6e3
yard m 0.9144; W/inch^2 W/m^2 1.550003e3; degF/hour K/s 1.543210e-4
heatflowunit W/m^2 4.184e-2; hgu W/m^3 4.184e-7; as s 1e-18; cs s 1e-2; ds s 0.1
)";

double relative_error(double a, double b) {
    return std::abs(a - b) / std::abs(b);
}

TEST(UnitsTable, AgreesWithPublishedFactors) {
    const kit::Logged logged;
    std::string published = kPublished;
    std::replace(published.begin(), published.end(), ';', ' ');
    std::istringstream rows(published);
    int seen = 0;
    std::string from, to, factor;
    for (; rows >> from >> to >> factor; ++seen) {
        double result = 0;
        ASSERT_EQ(units_convert(1, from.c_str(), &result, to.c_str(), nullptr), 0)
            << from << " " << to << " " << logged.text();
        EXPECT_LT(relative_error(result, std::stod(factor)), 5.1e-7) << from << " in " << to;
    }
    EXPECT_GE(seen, 150);
}

TEST(UnitsTable, HasWhatIsWrittenInMetadata) {
    const struct {
        const char* units;
        const char* same;
    } rows[] = {
        {"m/s", "km/ks"},
        {"m/s^2", "gal"},
        {"nm/s", "um s^-1"},
        {"1000 m", "mile"},
        {"1/s", "Hz"},
        {"counts/V", "COUNTS/mV"},
        {"counts", "digits"},
        {"m s^-2", "mgal"},
        {"kg*m/s^2", "N"},
        {"nT", "gammas"},
        {"rad/s", "deg/min"},
        {"microstrain", "%"},
        {"kPa", "psi"},
        {"mHz", "rad^0/s"},
        {"ms", "years"},
        {"sps", "samples/s"},
        {"mi/gallon", "km/L"},
        {"V/m/s", "kg*m/A/s^4"},
        {"kibibytes", "MB"},
        {"microradians", "deg"},
        {"megatons", "kg"},
        {"m**0.5", nullptr},
        {"furlong^0.5", nullptr},
        {"dB", nullptr},
    };
    const kit::Logged logged;
    for (const auto& row : rows)
        if (row.same != nullptr) {
            double result;
            EXPECT_EQ(units_convert(1, row.units, &result, row.same, nullptr), 0) << row.units;
        } else {
            EXPECT_EQ(units_match(row.units), nullptr) << row.units;
        }
}

TEST(UnitsTable, HasNoFindings) {
    Tbl* findings = units_check(MORVA_SOURCE_DIR "/data/units");
    EXPECT_EQ(maxtbl(findings), 0);
    freetbl(findings, free_units_finding);
    EXPECT_LE(maxtbl(UnitsBasis_tbl), UNITS_BASIS);
}

TEST(UnitsTable, ReadingsOfThermometers) {
    const struct {
        double value;
        const char *from, *to;
        double absolute, difference;
    } rows[] = {
        {20, "degC", "K", 293.15, 20},      {-40, "degF", "celsius", -40, -22.222222222222222},
        {0, "K", "degF", -459.67, 0},       {491.67, "rankine", "degC", 0, 273.15},
        {10, "degC/km", "K/m", 0.01, 0.01}, {5, "2 degC", "K", 10, 10},
        {5, "m", "cm", 500, 500},
    };
    for (const auto& row : rows) {
        double absolute, difference;
        EXPECT_EQ(units_convert_affine(row.value, row.from, &absolute, row.to, nullptr), 0);
        EXPECT_EQ(units_convert(row.value, row.from, &difference, row.to, nullptr), 0);
        EXPECT_NEAR(absolute, row.absolute, 1e-10) << row.from;
        EXPECT_NEAR(difference, row.difference, 1e-10) << row.from;
    }
    double same = 0;
    EXPECT_EQ(units_convert_affine(1e-17, "degC", &same, "celsius", nullptr), 0);
    EXPECT_EQ(same, 1e-17);
}

// ctest sets nothing: the table in the source tree is the one that is tested.
const kit::Env table("UNITS", MORVA_SOURCE_DIR "/data/units");

}  // namespace
