#include "host/mail/mail_form.h"

#include <algorithm>

#include "host/mail/file_form.h"
#include "host/mail/mail_check.h"

namespace quorvane {
namespace {

constexpr std::size_t kPiece = std::size_t{256} << 10;

std::string PieceAt(const MailBytes& bytes, std::uint64_t at)
{
    std::string piece(static_cast<std::size_t>(std::min<std::uint64_t>(bytes.Size() - at, kPiece)), '\0');
    piece.resize(bytes.Read(at, piece.data(), piece.size()));
    return piece;
}

// Hands over all bytes, piece by piece, until `visit` has enough.
template <class Visit>
void ForEachPieceOf(const MailBytes& bytes, Visit visit)
{
    std::string piece;
    for (std::uint64_t at = 0; at < bytes.Size(); at += piece.size()) {
        piece = PieceAt(bytes, at);
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
    const std::string beginning = PieceAt(file, 0);
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
