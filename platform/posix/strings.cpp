#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <string_view>

#include "platform/posix/win32_kernel.h"

namespace {

constexpr std::size_t kLongestPiece = 255;  // of a path, without its NUL

std::u16string_view View(LPCWSTR text)
{
    return text == nullptr ? std::u16string_view() : std::u16string_view(text);
}

WCHAR FoldAscii(WCHAR unit)
{
    return unit >= u'A' && unit <= u'Z' ? static_cast<WCHAR>(unit + (u'a' - u'A')) : unit;
}

// A locale of our own, because whether the host has called setlocale is the host's affair.
WCHAR FoldUnicode(WCHAR unit)
{
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == nullptr || (unit & 0xF800) == 0xD800)
        return FoldAscii(unit);
    return static_cast<WCHAR>(towlower_l(unit, utf8));
}

template <class Fold>
int CompareFolded(std::u16string_view left, std::u16string_view right, Fold fold)
{
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int difference = fold(left[i]) - fold(right[i]);
        if (difference != 0)
            return difference < 0 ? -1 : 1;
    }
    return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

void CopyPiece(LPWSTR buffer, std::u16string_view piece)
{
    if (buffer == nullptr)
        return;
    const std::size_t length = std::min(piece.size(), kLongestPiece);
    piece.copy(buffer, length);
    buffer[length] = 0;
}

}  // namespace

int lstrlenW(LPCWSTR text)
{
    return static_cast<int>(View(text).size());
}

int lstrcmpiW(LPCWSTR left, LPCWSTR right)
{
    return CompareFolded(View(left), View(right), FoldUnicode);
}

int _wcsicmp(LPCWSTR left, LPCWSTR right)
{
    return CompareFolded(View(left), View(right), FoldAscii);
}

void _wsplitpath(LPCWSTR path, LPWSTR drive, LPWSTR folder, LPWSTR name, LPWSTR extension)
{
    const std::u16string_view whole = View(path);
    const std::size_t nameStart = whole.rfind(u'/') + 1;  // 0 when there is no slash
    const std::u16string_view file = whole.substr(nameStart);
    const std::size_t dot = std::min(file.rfind(u'.'), file.size());
    CopyPiece(drive, {});
    CopyPiece(folder, whole.substr(0, nameStart));
    CopyPiece(name, file.substr(0, dot));
    CopyPiece(extension, file.substr(dot));
}
