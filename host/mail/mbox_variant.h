// host/mail/mbox_variant.h: the ways in which mbox files keep a body's "From " lines from being separators.
#ifndef QUORVANE_HOST_MAIL_MBOX_VARIANT_H_
#define QUORVANE_HOST_MAIL_MBOX_VARIANT_H_

namespace quorvane {

enum class MboxVariant {
    Auto,     // MboxCl2 for a mail whose Content-Length field leads to the next separator or to the end of
              // the file, MboxRd for all others.
    MboxO,    // "From " was written ">From "; ">From " is read as "From ".
    MboxRd,   // as many ">" as there are got one more; one is taken away from each ">...>From ".
    MboxCl2,  // Content-Length tells where a mail ends; nothing is quoted.
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MBOX_VARIANT_H_
