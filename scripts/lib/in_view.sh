# in_view.sh SCRATCH: in a mount namespace of its own, lays a copy-on-write view of the system over
# SCRATCH/view and tries the packages in it. Nothing reaches the system itself. Exits with 77 where
# the system refuses such a view.
# shellcheck shell=bash
set -euo pipefail

view="$1/view"
mount -t tmpfs none "$view" || exit 77
mkdir "$view/upper" "$view/work" "$view/root"
mount -t overlay none -o "lowerdir=/,upperdir=$view/upper,workdir=$view/work" "$view/root" || exit 77
mount --bind /proc "$view/root/proc"
mount --rbind /dev "$view/root/dev"
cp -r "$1/orv" "$view/root/orv"
cp "$(dirname "$0")/try_packages.sh" "$view/root/orv/"
mount -t tmpfs none "$view/root/tmp"
chroot "$view/root" bash /orv/try_packages.sh
rm -r "$view/root/orv"

# What may stay are the records of the package managers and of the loader.
left=$(find "$view/upper" ! -type d ! -path '*/var/lib/dpkg/*' ! -path '*/var/lib/apt/*' \
  ! -path '*/var/log/*' ! -path '*/var/cache/*' ! -path '*/etc/ld.so.cache' -o -name '*orv*')
[ -z "$left" ] || {
  printf 'left behind: %s\n' "$left"
  exit 1
}
