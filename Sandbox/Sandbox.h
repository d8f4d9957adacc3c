#pragma once

#include <filesystem>
#include <optional>
#include <vector>

/// What a program that reads other people's bytes gives up before it does: should one of them find a fault in
/// a parser, then what it could do with it is what stands here, and nothing else that the person may do.
namespace quillmark {

/// What a process may still do once it is restricted. Beside that it reads what the system keeps for all
/// programs (libraries, certificates, time zones), and goes on with what is open. It starts no program,
/// reaches no other process, and changes no file's length, mode, owner or attributes by its name.
struct Sandbox {
    std::vector<std::filesystem::path> read = {};  ///< files, and folders with all below them
    std::vector<std::filesystem::path> write =
        {};                    ///< files; folders, in which files may be made and removed
    bool isNetworked = false;  ///< connections over IP may be made; never any other
    /// Open files may be taken from the connections that there are (`Channel::receiveWith`).
    bool takesFiles = false;
    /// The same, and all else that `Channel` needs, as for asking processes that were made before.
    bool usesChannels = false;
};

/// How far the system goes along, for tests: what older kernels have.
struct SandboxLimits {
    static constexpr int newestLandlock = 7;
    int landlock = newestLandlock;  ///< version (ABI) of Landlock; 0: there is none
    bool hasSeccomp = true;
};

/// What holds from now on.
struct SandboxState {
    int landlock = 0;       ///< the version (ABI) of Landlock that confines files; 0: none does
    int landlockError = 0;  ///< why not (`errno`)
    int seccompError = 0;   ///< why system calls aren't confined (`errno`); 0: they are
};

/// Whether this build looks for its own faults: a sanitizer needs what a sandbox refuses, and nothing is
/// restricted.
bool isSandboxLeftOut();

/// Restricts this process for good, its threads to come, and nothing that it started before. Must be called
/// while there is one thread. What is named and isn't there is passed over: it can't be read, either. Where
/// the system has no Landlock, or doesn't allow seccomp, the other holds alone.
SandboxState restrictProcess(const Sandbox& sandbox, const SandboxLimits& limits = {});

}  // namespace quillmark
