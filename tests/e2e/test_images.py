"""Images: every archive format by both ways of uploading, refusals, a full disk, clients that go away."""

import concurrent.futures
import pathlib
import subprocess

import pytest
from conftest import PREFIX, kx

IMAGES = pathlib.Path("/userstorage1/container_rte/utilities/images")
FORMATS = {"tar": ["cat"], "tar.bz2": ["bzip2", "-c"], "tar.xz": ["xz", "-0c"], "tar.zst": ["zstd", "-1qc"]}


@pytest.fixture(scope="module")
def archives(programs, tmp_path_factory):
    """The image localhost/traveller:1, saved in each format and removed from Podman."""
    directory = tmp_path_factory.mktemp("archives")
    kx.podman("run", "--name", "maker", kx.IMAGE, "touch", "/luggage")
    kx.podman("commit", "-q", "maker", "localhost/traveller:1")
    kx.podman("rm", "maker")
    plain = directory / "image.tar.plain"
    kx.podman("save", "-q", "-o", str(plain), "localhost/traveller:1")
    for suffix, command in FORMATS.items():
        with open(plain, "rb") as source, open(directory / f"image.{suffix}", "wb") as target:
            subprocess.run(command, stdin=source, stdout=target, check=True)
    kx.podman("rmi", "localhost/traveller:1")
    return directory


def curl(service, *arguments):
    """Runs curl as a user would; gives the status and the body."""
    result = subprocess.run(
        ["curl", "-sS", "-w", "\n%{http_code}", "-H", f"Authorization: Bearer {service.token()}", *arguments],
        text=True, capture_output=True, timeout=60, check=True)
    body, status = result.stdout.rsplit("\n", 1)
    return int(status), body


def url(service):
    return f"http://127.0.0.1:{service.port}{kx.BASE}/images"


def tags(service):
    return {tag for image in service.request("GET", "/images").json()["images"] for tag in image.get("RepoTags") or []}


@pytest.mark.parametrize("suffix, way", [("tar", "form"), ("tar.bz2", "raw"), ("tar.xz", "chunked"), ("tar.zst", "form")])
def test_saved_image_comes_back_and_runs(service, archives, suffix, way):
    archive = archives / f"image.{suffix}"
    arguments = {"form": ["-F", f"file=@{archive}"],
                 "raw": ["-X", "POST", "-T", str(archive), "-H", f"Content-Disposition: attachment; filename={archive.name}"],
                 "chunked": ["-X", "POST", "-T", str(archive), "-H", "Transfer-Encoding: chunked",
                             "-H", f"Content-Disposition: attachment; filename={archive.name}"]}[way]
    assert "localhost/traveller:1" not in tags(service)
    assert curl(service, *arguments, url(service)) == (204, "")
    assert "localhost/traveller:1" in tags(service)
    assert list(IMAGES.iterdir()) == []
    assert PREFIX + f"Finished loading image {IMAGES}/{archive.name}" in service.log()
    assert kx.podman("run", "--rm", "localhost/traveller:1", "ls", "/luggage") == "/luggage"
    answer = service.request("DELETE", "/images/localhost/traveller:1")
    assert answer.status == 200 and {"Untagged": "localhost/traveller:1"} in answer.json()
    assert [list(entry) for entry in answer.json()].count(["Deleted"]) >= 1


def test_removal_maps_what_podman_says(service):
    listed = service.request("GET", "/images").json()["images"][0]
    keys = ["Id", "ParentId", "RepoTags", "RepoDigests", "Containers", "Created", "Size", "SharedSize", "Labels"]
    assert list(listed) == [key for key in keys if key in listed] and "Id" in listed
    kx.podman("run", "-d", "--name", "image-user", kx.IMAGE, "sleep", "1000")
    for name, status, detail in [("localhost/ghost:1", 404, "Image 'localhost/ghost:1' does not exist"),
                                 (kx.IMAGE, 409, f"Image '{kx.IMAGE}' is in use and cannot be deleted"),
                                 ("", 400, "Image name must be provided")]:
        answer = service.request("DELETE", f"/images/{name}")
        assert (answer.status, answer.detail()) == (status, detail)
    kx.podman("rm", "-f", "-t", "0", "image-user")


def test_rejected_file_stays_and_one_that_podman_refuses_goes(service, tmp_path):
    text = tmp_path / "notes.tar"
    text.write_text("no archive at all")
    status, body = curl(service, "-F", f"file=@{text}", url(service))
    assert status == 400 and "Uploaded file is not a valid tar archive (supported: .tar, .tar.gz/.tgz, .tar.bz2" in body
    assert (IMAGES / "notes.tar").read_text() == "no archive at all"
    (IMAGES / "notes.tar").unlink()
    fake = tmp_path / "fake.tar"
    fake.write_bytes(b"BZh9 not really")
    status, body = curl(service, "-F", f"file=@{fake}", url(service))
    assert status == 500 and "Error occurred while loading the image: " in body
    assert list(IMAGES.iterdir()) == []


def test_uploads_side_by_side_do_not_mix(service, archives):
    """Different names load. Two of the same name may spoil each other's file, but not a later one's."""

    def upload(number):
        return curl(service, "-F", f"file=@{archives}/image.tar;filename=image{number}.tar", url(service))

    with concurrent.futures.ThreadPoolExecutor() as pool:
        assert list(pool.map(upload, range(4))) == [(204, "")] * 4
        assert {status for status, _ in pool.map(upload, [0, 0])} <= {204, 400, 500}
    assert upload(0) == (204, "")
    assert service.request("DELETE", "/images/localhost/traveller:1").status == 200


def test_upload_over_the_limit_is_refused(start_service, tmp_path):
    running = start_service({"WebApi.MaxUploadBytes": 100000})
    big = tmp_path / "big"
    named = ["-X", "POST", "-T", str(big), "-H", "Content-Disposition: attachment; filename=big"]
    for size, status in ((100001, "413"), (100000, "400")):  # the file alone counts; this one is no archive
        big.write_bytes(bytes(size))
        for arguments in (["-F", f"file=@{big}"], named, [*named, "-H", "Transfer-Encoding: chunked"]):
            result = subprocess.run(["curl", "-sS", "-w", "%{http_code}", "-H", f"Authorization: Bearer {running.token()}",
                                     *arguments, url(running)], text=True, capture_output=True, timeout=60)
            assert result.stdout.endswith(status), result
    assert running.request("GET", "/settings").status == 200
