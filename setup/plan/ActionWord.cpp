// SPDX-License-Identifier: MIT
#include <setup/plan/KPlan.h>

namespace KSETUP {

bool KPlannedAction::IsOfEntry() const noexcept {
    switch (kind) {
    case Kind::CreateDirectory:
    case Kind::DeleteDirectory:
    case Kind::CopyFile:
    case Kind::DeleteFile:
    case Kind::MakeLink:
    case Kind::CreateProfile:
    case Kind::PutOption:
    case Kind::RemoveOption:
    case Kind::SetMode:
    case Kind::CreateUser:
        return true;
    case Kind::RunCommand:
    case Kind::KeepFile:
    case Kind::StartCommand:
    case Kind::StopProgram:
    case Kind::InstallService:
    case Kind::RemoveService:
    case Kind::StartService:
    case Kind::StopService:
        return false;
    }
    return false;
}

const char* ActionWord(KPlannedAction::Kind kind) noexcept {
    switch (kind) {
    case KPlannedAction::Kind::CreateDirectory:
        return "create directory";
    case KPlannedAction::Kind::DeleteDirectory:
        return "delete directory";
    case KPlannedAction::Kind::CopyFile:
        return "copy file";
    case KPlannedAction::Kind::KeepFile:
        return "keep file";
    case KPlannedAction::Kind::DeleteFile:
        return "delete file";
    case KPlannedAction::Kind::MakeLink:
        return "make link";
    case KPlannedAction::Kind::CreateProfile:
        return "create profile";
    case KPlannedAction::Kind::PutOption:
        return "put option";
    case KPlannedAction::Kind::RemoveOption:
        return "remove option";
    case KPlannedAction::Kind::StartCommand:
        return "start command";
    case KPlannedAction::Kind::StopProgram:
        return "stop program";
    case KPlannedAction::Kind::InstallService:
        return "install service";
    case KPlannedAction::Kind::RemoveService:
        return "remove service";
    case KPlannedAction::Kind::StartService:
        return "start service";
    case KPlannedAction::Kind::StopService:
        return "stop service";
    case KPlannedAction::Kind::SetMode:
        return "set mode";
    case KPlannedAction::Kind::CreateUser:
        return "create user";
    case KPlannedAction::Kind::RunCommand:
        return "run command";
    }
    return "";
}

} // namespace KSETUP
