#include "host/mime/address_list.h"

#include <gtest/gtest.h>

namespace quorvane {

void PrintTo(const MailAddress& who, std::ostream* out)
{
    *out << who.name << " <" << who.address << ">";
}

namespace {

using People = std::vector<MailAddress>;

TEST(AddressListTest, NamesAndAddressesAreReadInEachForm)
{
    EXPECT_EQ(
        ParseAddressList("Marta <marta@example.org>, jonas@example.com, tom@example.com (Tomasz)"),
        (People{{"Marta", "marta@example.org"}, {"", "jonas@example.com"}, {"Tomasz", "tom@example.com"}}));
}

TEST(AddressListTest, QuotedNamesKeepTheirCommasAndQuotes)
{
    EXPECT_EQ(ParseAddressList(R"("Okafor, Jonas; \"treasurer\"" <jonas@example.com>)"),
              (People{{R"(Okafor, Jonas; "treasurer")", "jonas@example.com"}}));
}

TEST(AddressListTest, AQuotedLocalPartKeepsItsQuotes)
{
    EXPECT_EQ(ParseAddressList(R"("quiet committee"@example.org, Q <"a b"@example.org>)"),
              (People{{"", R"("quiet committee"@example.org)"}, {"Q", R"("a b"@example.org)"}}));
}

TEST(AddressListTest, GroupsAreTheirMembers)
{
    EXPECT_EQ(
        ParseAddressList("Crew: A <a@example.org>, b@example.org;, undisclosed-recipients:;, c@example.org"),
        (People{{"A", "a@example.org"}, {"", "b@example.org"}, {"", "c@example.org"}}));
}

TEST(AddressListTest, EncodedWordsAreDecodedEvenWithCommasWithin)
{
    EXPECT_EQ(ParseAddressList("=?utf-8?Q?Wei=C3=9F,_J=C3=BCrgen?= <j@example.org>, "
                               "=?iso-8859-1?Q?Andr=E9?= Pirard <a@example.org>"),
              (People{{"Weiß, Jürgen", "j@example.org"}, {"André Pirard", "a@example.org"}}));
}

TEST(AddressListTest, ABareCommaInANameIsPartOfIt)
{
    EXPECT_EQ(ParseAddressList("Wilk, Tomasz <t@example.com>, b@example.org"),
              (People{{"Wilk, Tomasz", "t@example.com"}, {"", "b@example.org"}}));
}

TEST(AddressListTest, MissingAndOtherSeparatorsPartPeopleToo)
{
    EXPECT_EQ(
        ParseAddressList("a@example.org b@example.org; C <c@example.org> D <d@example.org>"),
        (People{
            {"", "a@example.org"}, {"", "b@example.org"}, {"C", "c@example.org"}, {"D", "d@example.org"}}));
}

TEST(AddressListTest, AddressesThatBreakTheGrammarStayAsTheyStand)
{
    EXPECT_EQ(ParseAddressList("s..palmer@example.com, <@relay,@next:user@example.com>, jöran@example.com"),
              (People{{"", "s..palmer@example.com"}, {"", "user@example.com"}, {"", "jöran@example.com"}}));
}

TEST(AddressListTest, CommentsAndBlanksWithinAnAddressGo)
{
    EXPECT_EQ(ParseAddressList("Chris <c@(his host)public.example >, Mary < mary @ example.net>"),
              (People{{"Chris", "c@public.example"}, {"Mary", "mary@example.net"}}));
}

TEST(AddressListTest, WhoHasOnlyANameIsNamed)
{
    EXPECT_EQ(ParseAddressList("Undisclosed Recipients"), (People{{"Undisclosed Recipients", ""}}));
    EXPECT_EQ(ParseAddressList("Somebody <>"), (People{{"Somebody", ""}}));
}

TEST(AddressListTest, NothingAndRubbishAreReadWithoutHarm)
{
    EXPECT_TRUE(ParseAddressList("").empty());
    EXPECT_TRUE(ParseAddressList(" ,; ,").empty());
    EXPECT_TRUE(ParseAddressList("<>").empty());
    for (const char* rubbish :
         {"\"", "(", "<", "((((", "\"\\", "a:b:c", "=?", "=?x?y?", "<<a@b>", ">>", "\\"})
        (void)ParseAddressList(rubbish);
}

TEST(AddressListTest, ANameThatRepeatsTheAddressIsNone)
{
    EXPECT_EQ(ParseAddressList("a@example.org <a@example.org>"), (People{{"", "a@example.org"}}));
}

}  // namespace
}  // namespace quorvane
