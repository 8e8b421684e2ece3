#include "job/restorepath.h"

#include <algorithm>
#include <array>

#include "base/paths.h"

namespace dorvo {
namespace {

using Fault = RestorePathFault;
using Text = std::wstring_view;

constexpr size_t longestName = 255;
constexpr size_t driveLength = 2;  // of "C:"

wchar_t upper(wchar_t c) {
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

bool sameAscii(Text a, Text b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](wchar_t x, wchar_t y) { return upper(x) == upper(y); });
}

bool isDrive(Text path) {
    return path.size() >= driveLength && upper(path[0]) >= L'A' && upper(path[0]) <= L'Z' &&
           path[1] == L':';
}

bool isShare(Text path) {
    return path.starts_with(L"\\\\");
}

Text withoutSeparator(Text path) {
    return path.ends_with(L'\\') ? path.substr(0, path.size() - 1) : path;
}

// Behind these names a server has no files.
bool isDeviceShare(Text share) {
    static constexpr std::array<Text, 3> names = {L"PIPE", L"MAILSLOT", L"IPC$"};
    return std::any_of(names.begin(), names.end(),
                       [&](Text name) { return sameAscii(share, name); });
}

bool isForbidden(wchar_t c) {
    return c < L' ' || Text(L"<>\"|?*").find(c) != Text::npos;
}

Fault checkName(Text name) {
    if (name.empty()) {
        return Fault::emptyName;
    }
    if (name == L"." || name == L"..") {
        return Fault::dotName;
    }
    if (name.find_first_not_of(L". ") == Text::npos) {
        return Fault::onlyDotsAndSpaces;
    }
    if (name.find(L':') != Text::npos) {
        return Fault::alternateStream;
    }
    if (std::any_of(name.begin(), name.end(), isForbidden)) {
        return Fault::forbiddenCharacter;
    }
    return name.size() > longestName ? Fault::nameTooLong : Fault::none;
}

Fault checkNames(Text names) {
    for (;;) {
        const size_t end = names.find(L'\\');
        const Fault fault = checkName(names.substr(0, end));
        if (fault != Fault::none || end == Text::npos) {
            return fault;
        }
        names.remove_prefix(end + 1);
    }
}

Fault checkShare(Text path) {
    const Text names = path.substr(2);
    const size_t serverEnd = names.find(L'\\');
    const Text server = names.substr(0, serverEnd);
    if (server == L"?" || server == L"." || server == L"??") {
        return Fault::otherScheme;
    }
    if (server.empty() || serverEnd >= names.size() - 1) {
        return Fault::notAbsolute;
    }
    const Text below = names.substr(serverEnd + 1);
    const Text share = below.substr(0, below.find(L'\\'));
    if (isDeviceShare(share)) {
        return Fault::deviceShare;
    }
    return checkNames(below.size() == share.size() + 1 ? withoutSeparator(names) : names);
}

// The length of "C:" or "\\server\share" in a path that has passed.
size_t rootLength(Text path) {
    if (!isShare(path)) {
        return driveLength;
    }
    const size_t share = path.find(L'\\', 2);
    return share == Text::npos ? path.size() : std::min(path.find(L'\\', share + 1), path.size());
}

Fault checkPath(Text path) {
    if (path.find(L'/') != Text::npos) {
        return Fault::forwardSlash;
    }
    if (path.starts_with(L"\\??\\")) {
        return Fault::otherScheme;
    }
    if (isShare(path)) {
        return checkShare(path);
    }
    if (!isDrive(path)) {
        return Fault::notAbsolute;
    }
    const Text rest = path.substr(driveLength);
    if (rest.empty() || rest == L"\\") {
        return Fault::none;
    }
    return rest.front() == L'\\' ? checkNames(rest.substr(1)) : Fault::notAbsolute;
}

}  // namespace

Fault checkRestorePath(const RestorePathRequest& request) {
    const auto same = request.sameName != nullptr ? request.sameName : sameAscii;
    const auto liesIn = [&](Text path, Text folder) {
        return path.size() >= folder.size() && same(path.substr(0, folder.size()), folder) &&
               (path.size() == folder.size() || path[folder.size()] == L'\\');
    };
    if (const Fault fault = checkPath(request.original); fault != Fault::none) {
        return fault;
    }
    if (!request.prefix.empty() && !liesIn(request.original, request.prefix)) {
        return Fault::outsidePrefix;
    }
    if (!request.root.empty() && request.prefix.empty() && isShare(request.original)) {
        return Fault::noPlace;
    }
    const Text root = withoutSeparator(request.root);
    const bool isRoot = !root.empty() && same(withoutSeparator(request.target), root);
    const Text target = isRoot ? withoutSeparator(request.target) : request.target;
    if (const Fault fault = checkPath(target); fault != Fault::none) {
        return fault;
    }
    if (!root.empty() && !liesIn(target, root)) {
        return Fault::outsideRoot;
    }
    return !request.directory && (isRoot || isVolumeRoot(target)) ? Fault::rootIsNoFile
                                                                  : Fault::none;
}

size_t restoredPartOf(Text target, Text root) {
    const size_t behind = root.empty() ? rootLength(target) : withoutSeparator(root).size();
    return std::min(behind + 1, target.size());
}

uint32_t restorePathCode(Fault fault) {
    constexpr uint32_t badPathname = 161;        // ERROR_BAD_PATHNAME
    constexpr uint32_t nameTooLong = 206;        // ERROR_FILENAME_EXCED_RANGE
    constexpr uint32_t cannotAccessFile = 1920;  // ERROR_CANT_ACCESS_FILE
    switch (fault) {
        case Fault::none: return 0;
        case Fault::nameTooLong: return nameTooLong;
        case Fault::link:
        case Fault::unknownParent: return cannotAccessFile;
        case Fault::notAbsolute:
        case Fault::otherScheme:
        case Fault::forwardSlash:
        case Fault::emptyName:
        case Fault::dotName:
        case Fault::alternateStream:
        case Fault::forbiddenCharacter:
        case Fault::deviceShare:
        case Fault::onlyDotsAndSpaces:
        case Fault::outsidePrefix:
        case Fault::noPlace:
        case Fault::outsideRoot:
        case Fault::rootIsNoFile:
        case Fault::ownData: break;
    }
    return badPathname;
}

const char* restorePathText(Fault fault) {
    switch (fault) {
        case Fault::none: return "";
        case Fault::notAbsolute: return "the path does not begin with a drive or a share";
        case Fault::otherScheme: return "the path is that of a device";
        case Fault::forwardSlash: return "the path has a forward slash in it";
        case Fault::emptyName: return "a name in the path is empty";
        case Fault::dotName: return "the path has \".\" or \"..\" in it";
        case Fault::alternateStream: return "a name in the path has a colon in it";
        case Fault::forbiddenCharacter:
            return "a name in the path has a character that Windows does not allow";
        case Fault::deviceShare: return "the share in the path is that of devices";
        case Fault::onlyDotsAndSpaces: return "a name in the path is nothing but dots and spaces";
        case Fault::nameTooLong: return "a name in the path is longer than 255 characters";
        case Fault::outsidePrefix: return "the item is not below the prefix of the restore";
        case Fault::noPlace:
            return "the path has no drive letter, and the restore has no prefix to put in its "
                   "place";
        case Fault::outsideRoot: return "the item would leave the folder that was chosen";
        case Fault::rootIsNoFile:
            return "the file would take the place of the folder that was chosen";
        case Fault::link: return "a folder on the way to the target is a link to another place";
        case Fault::unknownParent: return "a folder on the way to the target cannot be examined";
        case Fault::ownData:
            return "nothing is restored into the agent's own folder: restore it elsewhere with "
                   "--to";
    }
    return "";
}

}  // namespace dorvo
