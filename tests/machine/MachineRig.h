// SPDX-License-Identifier: MIT
#pragma once

#include "../support/EngineRig.h"

#include <string>

namespace KTEST {

/// An installer in a machine that may be changed: the product's record lies in /etc, where it belongs.
/// The link's directory is gone before and after each test.
class MachineTest : public EngineTest {
  protected:
    MachineTest();
    ~MachineTest() override;

    /// Lays the link of a product in "p" below the tree.
    void GivenLink();
    /// The link and a record file with this text.
    void GivenRecord(const std::string& text);
    /// The product data's version and build number.
    void GivenProduct(const std::string& version, unsigned buildNumber);
    /// A script whose install section lays down "p/lin/x86/svc", the configuration file and the
    /// link, with `more` lines in front of the link, and whose remove section takes them away.
    void GivenProductScript(const std::string& more = "");
    /// The code with which a started run ends, 0 for a clean end; the error itself in `failure`.
    unsigned CodeOfEnd();
    /// "2.1 37 PATH", or "none": what another installer finds.
    std::string Product() const;
    /// A new installer in place of the one that had its run.
    void Renew();

    const std::string linkDirectory = std::string("/etc/") + unitService;
    const std::string link = linkDirectory + '/' + unitService;
    std::string failure; ///< information of the error that ended the last run
};

} // namespace KTEST
