# SPDX-License-Identifier: MIT
"""Faults that are put into a copy of the product, each of which a sweep has to find (tools/breaks).

Break(what, sweep, options, change...): the sweep that finds it, with a narrow choice of points, and
what is changed. Change(file, text, code): the text, which the file has once, becomes the code, in
which TEXT stands for it and BROKEN for whether the break is on. Its place in the list is its number.
"""

from collections import namedtuple

Change = namedtuple("Change", "file text code")


class Break(namedtuple("Break", "what sweep options changes")):
    def __new__(cls, what, sweep, options, *changes):
        return super().__new__(cls, what, sweep, options.split(), changes)


SKIPPED = "if (!BROKEN) { TEXT }"

# What is brought to the disk, and in which order.
FLUSHES = [
    Break(
        "a file that takes another's place is not flushed",
        "cut", "--only install:together/ext4-late/b --every 8",
        Change(
            "sys/files/DirectoryEntry.cpp",
            "        status = Flush(file.Get());",
            "        status = BROKEN ? 0 : Flush(file.Get());",
        ),
    ),
    Break(
        "a directory in which a file took another's place is not flushed",
        "cut", "--only upgrade:apart/ext4-late/ac --every 3",
        Change(
            "setup/state/KPrivateDirectory.cpp",
            '''TextFormat("cannot write %s"),
        name
    );
    Flush();''',
            '''TextFormat("cannot write %s"),
        name
    );
    if (!BROKEN) { Flush(); }''',
        ),
    ),
    Break(
        "what the rules wrote is not flushed",
        "cut", "--only install:apart/ext4-late/aa/end",
        Change(
            "sys/files/WriteTracking.cpp",
            "    unsigned result = std::exchange(tracking.firstError, 0);",
            "    if (BROKEN) { return 0; }\nTEXT",
        ),
    ),
    Break(
        "what a removal deleted is not flushed",
        "cut", "--only remove:apart/ext4-late/aa/end",
        Change(
            "setup/run/FlushDeletions.cpp",
            "    FlushedFileSystems flushed;",
            "    if (BROKEN) { return; }\nTEXT",
        ),
    ),
    Break(
        "what was put back is not flushed",
        "cut", "--only restore:apart/ext4-late/aa/end",
        Change(
            "setup/state/KRestorationSteps.cpp",
            "void KRestoration::Flush() {",
            "TEXT if (BROKEN) { written.clear(); return; }",
        ),
    ),
    Break(
        "what is put back takes its place before its bytes are on the disk",
        "cut", "--only restore:together/ext4-late/b",
        Change(
            "setup/state/KRestorationSteps.cpp",
            "        flushed[device] = KSYS::FlushFileSystem(file.Get());",
            "        flushed[device] = BROKEN ? 0 : KSYS::FlushFileSystem(file.Get());",
        ),
    ),
    Break(
        "a backup is not flushed before the first change",
        "cut", "--only backup:together/ext4-late/b --every 16",
        Change(
            "setup/state/KBackup.cpp",
            "const unsigned failed = KSYS::FlushFileSystem(store.Get()); failed != 0",
            "const unsigned failed = BROKEN ? 0 : KSYS::FlushFileSystem(store.Get()); failed != 0",
        ),
    ),
]

# What is remembered of a run, and until when.
MEMORY = [
    Break(
        "a run is forgotten before the manifest is written",
        "kill", "--only install --at manifest",
        Change(
            "setup/run/KRunEnd.cpp",
            "        installed.Write(GetPlanned().GetProduct().GetService());",
            "        if (BROKEN) { state->End(); }\nTEXT",
        ),
    ),
    Break(
        "the manifest is written before the rules run",
        "kill", "--only upgrade --at plain.conf",
        Change(
            "setup/run/KRun.cpp",
            "    state->Begin(run);",
            '''TEXT
    if (BROKEN && GetPlanned().Installs()) {
        KManifest early(journal->GetMade(), {});
        early.SetProduct({report.version, report.buildNumber, report.productPath});
        early.Write(service);
    }''',
        ),
    ),
    Break(
        "what a run is about to make is not written down",
        "kill", "--only install --at b.dat",
        Change(
            "setup/state/KWriteJournal.cpp",
            "        text += Entry(expectedMark, NormalPath(path));",
            SKIPPED,
        ),
    ),
    Break(
        "a run that goes on does not read what the first one made",
        "kill", "--only install --at b.dat",
        Change(
            "setup/state/KWriteJournal.cpp",
            "if (begin == Begin::GoOn) {",
            "if (!BROKEN && begin == Begin::GoOn) {",
        ),
    ),
    Break(
        "which configuration a run writes anew is not written down",
        "kill", "--only upgrade --at list.ini",
        Change(
            "setup/state/KWriteJournal.cpp",
            "        text += Entry(rewrittenMark, NormalPath(path));",
            SKIPPED,
        ),
    ),
    Break(
        "half of a file stays where a run was killed",
        "kill", "--only upgrade --at list.ini",
        Change(
            "setup/run/KRun.cpp",
            "    if (GoesOn()) {\n        DeleteHalfWritten();",
            "    if (!BROKEN && GoesOn()) {\n        DeleteHalfWritten();",
        ),
    ),
    Break(
        "what is half restored is installed over",
        "kill", "--only rollback --at unlinkat(state)",
        Change("setup/run/Runs.cpp", "    if (isRestoring && ", "    if (!BROKEN && isRestoring && "),
    ),
    Break(
        "a backup is deleted before it is forgotten that it is put back",
        "kill", "--only rollback --at unlinkat(state)",
        Change(
            "setup/run/KRestore.cpp",
            "    const auto former = backup.index.entries.find(state);",
            "TEXT\n    if (BROKEN) { store.Delete(backup.index.run); }",
        ),
    ),
    Break(
        "the kit that is kept is deleted in its place",
        "kill", "--only purge --at install.ini",
        Change(
            "setup/state/KKeptKit.cpp",
            "        // Half of a kit counts as none.",
            "        if (BROKEN) { RemoveTree(*directory, keptName); return; }",
        ),
    ),
]

# What is told.
ANSWERS = [
    Break(
        "status does not tell of an interrupted run",
        "kill", "--only install --at b.dat",
        Change(
            "setup/run/Status.cpp",
            "} else if (auto interrupted = KRunState::Read(service)) {",
            "} else if (auto interrupted = BROKEN ? std::nullopt : KRunState::Read(service)) {",
        ),
    ),
    Break(
        "a question writes a file",
        "kill", "--only status",
        Change(
            "setup/run/Status.cpp",
            "    FillKeys(service, report);",
            '''TEXT
    if (BROKEN) { KPrivateDirectory("/var/lib/ins++", service).WriteDurably("asked", "?"); }''',
        ),
        Change(
            "setup/run/Status.cpp",
            "#include <setup/state/KRunState.h>",
            "TEXT\n#include <setup/state/KPrivateDirectory.h>",
        ),
    ),
]

# Calls that fail.
ERRORS = [
    Break(
        "a copy that fails counts as done",
        "error", "--only install --at a.dat",
        Change(
            "setup/rules/KOwnedFileRule.cpp",
            "    CopyHeld(source, fromDirectory, target, toDirectory);",
            '''    try {
TEXT
    } catch (const KSUP::KError&) {
        if (!BROKEN) { throw; }
        return;
    }''',
        ),
        Change(
            "setup/rules/KOwnedFileRule.cpp",
            "#include <sup++/KErrorKind.h>",
            "#include <sup++/KError.h>\nTEXT",
        ),
    ),
    Break(
        "a link that cannot be laid counts as laid",
        "error", "--only install --at newest",
        Change(
            "sys/files/FileCalls.cpp",
            "    if (errno != EEXIST) {\n        return LastError();",
            "    if (errno != EEXIST) {\n        return BROKEN ? 0 : LastError();",
        ),
    ),
    Break(
        "a file that cannot take its place counts as written",
        "error", "--only upgrade --at renameat(sweep.ini)",
        Change(
            "sys/files/KFileReplacement.cpp",
            "::renameat(at, temporary.c_str(), at, place.name.c_str()) != 0) {",
            "TEXT if (BROKEN) { ::unlinkat(at, temporary.c_str(), 0); return 0; }",
        ),
    ),
    Break(
        "what cannot be put back is not told",
        "error", "--only restore --at plain.conf",
        Change(
            "setup/state/KRestorationSteps.cpp",
            "void KRestoration::Failed(const KText& what, unsigned errorNumber) {",
            "TEXT if (BROKEN) { return; }",
        ),
    ),
    Break(
        "a run that ends for want of memory counts as done",
        "memory", "--only install --every 40",
        Change(
            "setup/main.cpp",
            "        Refuse(report, KSETUP::ExitCode::internal, error.what());",
            SKIPPED,
        ),
    ),
]

# Whoever comes in between.
OTHERS = [
    Break(
        "two runs of a product go on at once",
        "load", "--only same --every 5",
        Change(
            "setup/state/KRunLock.cpp",
            "    while (!TryLock(file, *place, name)) {",
            "    while (!TryLock(file, *place, name) && !BROKEN) {",
        ),
    ),
    Break(
        "links that another user laid are followed",
        "race", "--only etc:owned-late --every 2",
        Change(
            "sys/files/PathWalk.cpp",
            "    return trusted && link.st_uid == 0 ? 0 : ELOOP;",
            "    return BROKEN || (trusted && link.st_uid == 0) ? 0 : ELOOP;",
        ),
    ),
    Break(
        "a file is copied through whatever link lies in its place",
        "race", "--only etc:owned-late --every 2",
        Change(
            "sys/files/FileCalls.cpp",
            "    unsigned status = OpenWithoutLinks(path, makeNew, mode, file);",
            '''    if (BROKEN) {
        file.Reset(::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
        NoteCreation(path, file, isUnlinked);
        return file.IsOpen() ? 0 : LastError();
    }
TEXT''',
        ),
    ),
]

BREAKS = FLUSHES + MEMORY + ANSWERS + ERRORS + OTHERS
