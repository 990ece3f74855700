"""How a client is made. What is None stays as the library has it."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from dataclasses import dataclass, fields
from typing import Any, Literal

from . import _library
from ._kinds import camel, checked
from .events import ClientEvent


@dataclass(frozen=True, kw_only=True)
class Proxy:
    """The way out of a network that lets nobody out directly.

    `for_http` and `for_https`: "http://proxy.example:3128", "https://..." or "socks5://...", with "user:password@" where
    the proxy asks for it, for servers without TLS and with it. `no_proxy`: who is reached directly, with commas between.
    """

    for_http: str | None = None
    for_https: str | None = None
    no_proxy: str | None = None


@dataclass(frozen=True, kw_only=True)
class Tls:
    """Whom TLS trusts, and who this side is. There is no switch that turns verification off.

    Authorities beside the system's: a PEM file, a directory as `openssl rehash` prepares it, PEM text. This side's
    certificate and key: as PEM files or PEM text. `pins`: public keys ("sha256//" and Base64), one of which each server
    must have. `minimum_version`: "1.2" or "1.3". `server_name`: whom the certificate must be for, instead of the name in
    the address.
    """

    trusts_system: bool | None = None
    ca_file: str | None = None
    ca_directory: str | None = None
    ca_pem: str | None = None
    certificate_file: str | None = None
    certificate_pem: str | None = None
    key_file: str | None = None
    key_pem: str | None = None
    key_password: str | None = None
    pins: Iterable[str] | None = None
    minimum_version: Literal["1.2", "1.3"] | None = None
    server_name: str | None = None


@dataclass(frozen=True, kw_only=True)
class Network:
    """How the client gets through the network, and what it takes from it. Times are in seconds, sizes in bytes.

    `proxy`: a URL for all servers, "environment" for what http_proxy and its like say, or a `Proxy`. `headers` and
    `user_agent` go with discovery, uploads and the connection's handshake. `socket_path`: where the socket server
    listens, "/socket.io/". `discovery_timeout`: how long the API server may show no sign of life. `connect_timeout`: how
    long a login waits for the connection. `request_timeout`: how long a request waits for its answer; 0 for the time
    that each operation names. `max_message_bytes`: the largest message that is taken. `max_unhandled_bytes`: what may
    wait to be received before nothing more is read from the server. `watches_network`: whether changes of the system's
    network are followed.
    """

    proxy: str | Proxy | None = None
    tls: Tls | None = None
    user_agent: str | None = None
    headers: Mapping[str, str] | None = None
    socket_path: str | None = None
    discovery_timeout: float | None = None
    connect_timeout: float | None = None
    request_timeout: float | None = None
    max_message_bytes: int | None = None
    max_unhandled_bytes: int | None = None
    watches_network: bool | None = None


@dataclass(frozen=True, kw_only=True)
class Recording:
    """Where a client writes down what goes over its connections, without tokens: for `kvpim show` and `kvpim replay`.

    `with_contents`: whether what people say is kept. `max_bytes`: what `file` and its predecessor may have together.
    """

    file: str
    with_contents: bool | None = None
    max_bytes: int | None = None


@dataclass(frozen=True, kw_only=True)
class Options:
    """All of it, as `Client` takes it."""

    app_id: str
    api_server: str | None = None
    collect_server: str | None = None
    upload_interval: float | None = None
    application_identifier: str | None = None
    caches_directory: str | None = None
    key_store_directory: str | None = None
    ca_file: str | None = None
    engine: Literal["thread", "main_queue"] | None = None
    max_queued_bytes: int | None = None
    network: Network | None = None
    check_threads: bool | None = None
    record_to: Recording | None = None
    delegate: Iterable[type[ClientEvent]] | None = None


_RECORDS = {"network": Network, "network.tls": Tls, "network.proxy": Proxy, "recordTo": Recording}


def as_json(options: Any, prefix: str = "") -> dict[str, Any]:
    """The options as the library takes them; raises TypeError for one of a wrong type."""
    kinds = {row["name"]: row["type"] for row in _library.interface()["options"]}
    found = {}
    for field in fields(options):
        name, value = prefix + camel(field.name), getattr(options, field.name)
        record = _RECORDS.get(name)
        if value is None:
            continue
        if record is not None and isinstance(value, record):
            found[camel(field.name)] = as_json(value, name + ".")
        elif record is not None and not (record is Proxy and isinstance(value, str)):
            raise TypeError(f"{field.name} must be a {record.__name__}, not {type(value).__name__}")
        else:
            found[camel(field.name)] = value if record else checked(kinds[name], value, field.name)
    return found
