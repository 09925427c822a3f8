# What a user types who has just installed the packages: two mailboxes of this machine share a folder with a mail.
quorvane --version
mkdir -p ~/exchange
quorvane init ~/alice --name alice --exchange ~/exchange
quorvane init ~/bob --name bob --exchange ~/exchange
quorvane import ~/alice Projects /usr/share/doc/quorvane/examples/01-plain.eml
quorvane share ~/alice Projects --with bob
quorvane members add ~/bob alice
quorvane run ~/alice --until-idle
quorvane run ~/bob --until-idle --accept-from alice
quorvane run ~/alice --until-idle
quorvane run ~/bob --until-idle
quorvane compare ~/alice Projects ~/bob Projects
quorvane list ~/bob Projects
test "$(quorvane list ~/bob Projects --json | grep -o '"subject"' | wc -l)" = 1
