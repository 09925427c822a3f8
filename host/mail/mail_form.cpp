#include "host/mail/mail_form.h"

#include <algorithm>

#include "host/mail/file_form.h"
#include "host/mail/mail_check.h"

namespace quorvane {
namespace {

constexpr std::size_t kPiece = std::size_t{256} << 10;

// Hands over all bytes, piece by piece, until `visit` has enough.
template <class Visit>
void ForEachPieceOf(const MailBytes& bytes, Visit visit)
{
    std::string piece(kPiece, '\0');
    for (std::uint64_t at = 0; at < bytes.Size(); at += piece.size()) {
        piece.resize(kPiece);
        piece.resize(bytes.Read(at, piece.data(), piece.size()));
        if (piece.empty() || !visit(piece))
            return;
    }
}

bool HasOnlyCr(const MailBytes& bytes)
{
    bool cr = false;
    bool lf = false;
    ForEachPieceOf(bytes, [&](const std::string& piece) {
        lf = piece.find('\n') != std::string::npos;
        cr = cr || piece.find('\r') != std::string::npos;
        return !lf;
    });
    return cr && !lf;
}

}  // namespace

std::optional<MailBytes> MailWithin(const MailBytes& file)
{
    std::string beginning(kPiece, '\0');
    beginning.resize(file.Read(0, beginning.data(), beginning.size()));
    Utf16File wide(beginning);
    const bool onlyCr = !wide.Is() && HasOnlyCr(file);
    if (!wide.Is() && !onlyCr && TrimToMail(beginning).size() == beginning.size())
        return std::nullopt;

    MailBytes mail;
    bool begun = false;
    ForEachPieceOf(file, [&](std::string piece) {
        std::string text;
        if (wide.Is()) {
            wide.Put(piece, text);
            piece.swap(text);
        }
        if (onlyCr)
            std::replace(piece.begin(), piece.end(), '\r', '\n');
        // What goes before the mail is less than the first piece.
        mail.Append(begun ? std::string_view(piece) : TrimToMail(piece));
        begun = true;
        return true;
    });
    if (wide.Is()) {
        std::string rest;
        wide.End(rest);
        mail.Append(rest);
    }
    return mail;
}

}  // namespace quorvane
