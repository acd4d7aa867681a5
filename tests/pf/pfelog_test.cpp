// The register's settings from the parameter file `elog`, whatever a program calls first.
#include <thread>

#include "log/elog.hpp"
#include "log/elog_child.hpp"
#include "pf/pf_files.hpp"

namespace {

using kit::Env;
using morva::log::state;

// Runs the body in a process whose register has no settings yet.
kit::Ended in_fresh_child(const std::function<void()>& body) {
    return kit::in_child([&] {
        state().initialised = morva::log::kNever;
        body();
        return 0;
    });
}

std::string setting(int code, int severity) {
    char* text = nullptr;
    return elog_query(code, severity, &text) == 0 ? text : "<none>";
}

// All settings, a line each, and what was registered on the way.
void show_settings() {
    std::string all;
    for (int code : {ELOG_DELIVER, ELOG_TAG, ELOG_DEBUG})
        for (int i = 0; i < ELOG_NSEVERITY; ++i) all += setting(code, i) + "\n";
    all += setting(ELOG_SIGNALS, 0) + "\n" + std::to_string(Max_msg) + "\n" + state().wait + "\n" +
           state().t_format + "\n" + state().u_format + "\n";
    std::fputs((all + kit::taken(elog_string(0))).c_str(), stderr);
}

std::string settings() {
    return in_fresh_child(show_settings).errors;
}

class PfElog : public kit::PfFiles {};

TEST_F(PfElog, TheShippedFileChangesNothing) {
    const std::string without = settings();
    const Env path("PFPATH", MORVA_SOURCE_DIR "/data/pf");
    Pf* pf = nullptr;
    EXPECT_EQ(pfread("elog", &pf), 0);
    pffree(pf);
    EXPECT_EQ(settings(), without);
}

TEST_F(PfElog, TakesEveryKey) {
    write("a/elog.pf", "ELOG_MAXMSG 7\nt_format %H\nELOG_DEBUG &Arr{\n  notify x\n}\n");
    write("b/elog.pf",
          "ELOG_MAXMSG 8\nELOG_WAIT w w\nELOG_SIGNALS FPE\nu_format %M\nunknown 1\n"
          "ELOG_DELIVER &Arr{\n  log\n  alert stdout log\n  none stdout\n}\n"
          "ELOG_TAG &Arr{\n  die &env(MORVA_X)\n}\n");
    const Env x("MORVA_X", "[%P]");
    EXPECT_EQ(settings(),
              "\nstderr\nstderr\nstdout log\nstderr\nstderr\nstderr\n"
              "%P\n%P *debug*\n%P\n%P *alert*\n%P\n[%P]\n%P *fault*\n"
              "\n\nx\n\n\ngdb %r %p\ngdb %r %p\n"
              "FPE\n8\nw w\n%H\n%M\n");
}

TEST_F(PfElog, IsOverriddenByTheEnvironment) {
    write("a/elog.pf", "ELOG_MAXMSG 7\nELOG_TAG &Arr{\n  die d\n  alert a\n}\n");
    const Env limit("ELOG_MAXMSG", "9"), tag("ELOG_TAG", "e@d");
    EXPECT_THAT(settings(), testing::HasSubstr("%P\n%P *debug*\n%P\na\n%P\ne\n%P *fault*\n"));
    EXPECT_THAT(settings(), testing::HasSubstr("\n9\n"));
}

// Whatever is called first, the settings are read, and what is wrong with them is registered.
TEST_F(PfElog, ComesFirstWhateverIsCalledFirst) {
    write("a/elog.pf", "ELOG_MAXMSG 20\nELOG_TAG no array\nELOG_WAIT &Tbl{\n}\n}\nELOG_MAXMSG 8\n");
    write("b/elog.pf", "t_format &Tbl{ x\n");
    write("a/x.pf", "k &Arr{\n");
    const std::function<void()> firsts[] = {
        [] { elog_log(0, "first"); },
        [] { elog_mark(); },
        [] {
            Pf* pf = nullptr;
            pfread("x", &pf);
        },
        [] {
            Pf* pf = nullptr;
            pfread("elog", &pf);
        },
        [] {
            Pf* pf = nullptr;
            pfupdate("x", &pf);
        },
        [] { getPf("x"); },
        [] { updatePf("elog"); },
        [] {
            Pf* pf = nullptr;
            pfcompile("}\n", &pf);
        },
        [] {
            std::thread other([] { elog_log(0, "other"); });
            elog_log(0, "one");
            Pf* pf = nullptr;
            pfread("elog", &pf);
            other.join();
        },
    };
    for (const auto& first : firsts) {
        const kit::Ended ended = in_fresh_child([&] {
            first();
            show_settings();
        });
        EXPECT_EQ(ended.status, 0);
        EXPECT_THAT(ended.errors, testing::HasSubstr("\n20\n"));
        for (const char* reason :
             {"invalid right brace at line #5", "ELOG_TAG in parameter file elog is no array",
              "ELOG_WAIT in parameter file elog is no text"})
            EXPECT_THAT(ended.errors, testing::HasSubstr(reason));
    }
}

}  // namespace
