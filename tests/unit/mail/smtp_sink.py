"""A mail server that stores what it receives, for tests.

It listens on an inherited socket, and writes each mail to NUMBER.eml (the message) and
NUMBER.json (the rest) in a folder, and each login attempt as a line to "logins" there.
"""

import argparse
import asyncio
import json
import logging
import os
import socket
import ssl

from aiosmtpd.smtp import SMTP, AuthResult


class Sink:
    def __init__(self, options):
        self.options = options
        self.count = 0

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if address in self.options.refuse:
            return "550 5.1.1 no such mailbox"
        if address in self.options.defer:
            return "451 4.2.0 try again later"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        name = os.path.join(self.options.out, "%03d" % self.count)
        with open(name + ".eml", "wb") as message:
            message.write(envelope.original_content)
        with open(name + ".tmp", "w", encoding="utf-8") as rest:
            json.dump(
                {
                    "from": envelope.mail_from,
                    "to": envelope.rcpt_tos,
                    "tls": session.ssl is not None or self.options.smtps,
                    "user": session.auth_data if session.authenticated else None,
                },
                rest,
            )
        os.rename(name + ".tmp", name + ".json")
        if self.options.hang:
            await asyncio.sleep(3600)
        return "250 OK"

    def authenticate(self, server, session, envelope, mechanism, data):
        user, password = data.login.decode(), data.password.decode()
        good = "%s:%s" % (user, password) == self.options.login
        with open(os.path.join(self.options.out, "logins"), "a", encoding="utf-8") as logins:
            logins.write("%s %s %s\n" % (user, "good" if good else "bad", "tls" if session.ssl else "plain"))
        return AuthResult(success=good, handled=False, auth_data=user)


async def main(options):
    listener = socket.socket(fileno=options.fd)
    sink = Sink(options)
    context = None
    if options.certificate:
        context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        context.load_cert_chain(options.certificate, options.key)

    def session():
        starttls = context is not None and not options.smtps
        return SMTP(
            sink,
            hostname="sink.invalid",
            tls_context=context if starttls else None,
            require_starttls=starttls,
            authenticator=sink.authenticate if options.login else None,
            auth_required=bool(options.login),
            auth_require_tls=starttls,
        )

    server = await asyncio.get_running_loop().create_server(
        session, sock=listener, ssl=context if options.smtps else None
    )
    await server.serve_forever()


if __name__ == "__main__":
    logging.getLogger("mail.log").setLevel(logging.ERROR)
    parser = argparse.ArgumentParser()
    parser.add_argument("--fd", type=int, required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--certificate")
    parser.add_argument("--key")
    parser.add_argument("--smtps", action="store_true")
    parser.add_argument("--login", help="USER:PASSWORD")
    parser.add_argument("--refuse", action="append", default=[])
    parser.add_argument("--defer", action="append", default=[])
    parser.add_argument("--hang", action="store_true", help="never answer a mail")
    asyncio.run(main(parser.parse_args()))
