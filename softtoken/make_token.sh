#!/usr/bin/env bash
# Makes a token for the software token: keys, certificates and their description, by OpenSSL.
#
#   softtoken/make_token.sh --folder DIR --serial SERIAL [OPTIONS]
#
#   --folder DIR       the token folder; the token becomes DIR/SERIAL
#   --serial SERIAL    serial number of the token
#   --keys LIST        comma-separated BITS:USAGE, in the token's order (default 2048:sig,2048:kx)
#                      BITS 1024, 2048, 3072 or 4096; USAGE sig (1), kx (2, key exchange) or both (3)
#   --pin PIN          user PIN (default 1234)
#   --sopin PIN        security officer's PIN (default 87654321)
#   --tries N          wrong user PINs until it blocks (default 8)
#   --sotries N        the same for the security officer's PIN (default 8)
#   --firmware TEXT    firmware version (default 2.1.0)
#   --fips             the token refuses MD5 and SHA-1
#   --subject TEXT     start of the common name in the certificates (default "Orvane test user")
#   --ca DIR           folder of the small certification authority that signs them, made when it is missing
#                      (default DIR/.ca); its certificate is ca.crt (PEM)
#   --replace          replaces a token that exists
#
# The token appears in one step when everything is ready. Certificates are valid from yesterday for ten years.
set -euo pipefail
umask 077

usage() {
  sed -n '2,/^set -e/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
}

die() {
  echo "make_token: $*" >&2
  exit 1
}

folder='' serial='' keys=2048:sig,2048:kx pin=1234 soPin=87654321 tries=8 soTries=8 firmware=2.1.0 fips=0
subject='Orvane test user' ca='' replace=no
while [ $# -gt 0 ]; do
  case $1 in
    --fips) fips=1 ;;
    --replace) replace=yes ;;
    --help) usage && exit 0 ;;
    --folder | --serial | --keys | --pin | --sopin | --tries | --sotries | --firmware | --subject | --ca)
      [ $# -ge 2 ] || die "$1 needs a value"
      case $1 in
        --folder) folder=$2 ;;
        --serial) serial=$2 ;;
        --keys) keys=$2 ;;
        --pin) pin=$2 ;;
        --sopin) soPin=$2 ;;
        --tries) tries=$2 ;;
        --sotries) soTries=$2 ;;
        --firmware) firmware=$2 ;;
        --subject) subject=$2 ;;
        --ca) ca=$2 ;;
      esac
      shift
      ;;
    *) die "unknown argument $1 (see --help)" ;;
  esac
  shift
done
if [ -z "$folder" ] || [ -z "$serial" ]; then
  die "--folder and --serial are needed (see --help)"
fi
case $serial in
  .* | */* | *\\* | *:*) die "a serial neither begins with a dot nor holds / \\ or :" ;;
esac
case $subject in
  */* | *[$'\n\t']*) die "the subject holds no / and no line end" ;;
esac
for number in "$tries" "$soTries"; do
  [[ $number =~ ^[0-9]+$ ]] || die "tries are a number"
done
IFS=, read -r -a keyList <<<"$keys"
for key in "${keyList[@]}"; do
  [[ $key =~ ^(1024|2048|3072|4096):(sig|kx|both)$ ]] || die "not a key: $key"
done
ca=${ca:-$folder/.ca}
target=$folder/$serial
if [ -e "$target" ] && [ "$replace" = no ]; then
  die "$target exists (see --replace)"
fi

mkdir -p "$folder"
work=$(mktemp -d "$folder/.$serial.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Dates in the form that "openssl ca" takes.
notBefore=$(date -u -d yesterday +%Y%m%d%H%M%SZ)
notAfter=$(date -u -d 'yesterday +10 years' +%Y%m%d%H%M%SZ)

# signRequest DATABASE-FOLDER SUBJECT EXTENSIONS ARGUMENTS...: "openssl ca" with a database that is thrown away.
signRequest() {
  local database=$1 name=$2 extensions=$3
  shift 3
  mkdir -p "$database"
  : >"$database/index.txt"
  cat >"$database/ca.conf" <<END
[ca]
default_ca = small
[small]
database = $database/index.txt
new_certs_dir = $database
rand_serial = yes
default_md = sha256
policy = any
x509_extensions = extensions
[any]
organizationName = optional
commonName = supplied
[extensions]
$extensions
END
  openssl ca -utf8 -batch -notext -config "$database/ca.conf" -subj "$name" -startdate "$notBefore" -enddate "$notAfter" "$@" \
    2>"$database/log" || { cat "$database/log" >&2; return 1; }
}

if [ ! -e "$ca/ca.crt" ]; then
  new=$work/ca
  mkdir -p "$new" "$(dirname "$ca")"
  openssl genrsa -out "$new/ca.key" 2048 2>/dev/null
  openssl req -utf8 -new -key "$new/ca.key" -subj '/O=Brightfold/CN=Orvane test CA' -out "$new/ca.csr"
  signRequest "$work/database-ca" '/O=Brightfold/CN=Orvane test CA' 'basicConstraints = critical, CA:true
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash' -selfsign -keyfile "$new/ca.key" -in "$new/ca.csr" -out "$new/ca.crt"
  rm "$new/ca.csr"
  mv -T "$new" "$ca"
fi

# makeKey NUMBER BITS USAGE: the private key, its certificate and the line of the description, in $work/token.
makeKey() {
  local number=$1 bits=$2 usage=$3 pem=$work/$1.pem keyUsage code id
  case $usage in
    sig) code=1 keyUsage='digitalSignature, nonRepudiation' ;;
    kx) code=2 keyUsage='keyEncipherment, dataEncipherment' ;;
    both) code=3 keyUsage='digitalSignature, nonRepudiation, keyEncipherment, dataEncipherment' ;;
  esac
  openssl genrsa -out "$pem" "$bits" 2>/dev/null
  openssl rsa -in "$pem" -traditional -outform DER -out "$work/token/key$number.key" 2>/dev/null
  openssl req -utf8 -new -key "$pem" -subj "/O=Brightfold/CN=$subject" -out "$work/$number.csr"
  signRequest "$work/database-$number" "/O=Brightfold/CN=$subject ($serial key $number)" "basicConstraints = CA:false
keyUsage = critical, $keyUsage
extendedKeyUsage = clientAuth, emailProtection
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid" -keyfile "$ca/ca.key" -cert "$ca/ca.crt" -in "$work/$number.csr" -out "$work/$number.crt"
  openssl x509 -in "$work/$number.crt" -outform DER -out "$work/token/key$number.crt"
  id=$(openssl rsa -in "$pem" -noout -modulus | sha256sum | cut -c1-32)
  echo "key=key$number $code ${id^^}" >"$work/$number.line"
}

# Finding primes takes seconds for the larger keys; all keys are made at the same time.
mkdir "$work/token"
jobs=()
for i in "${!keyList[@]}"; do
  makeKey "$((i + 1))" "${keyList[i]%%:*}" "${keyList[i]#*:}" &
  jobs+=("$!")
done
for job in "${jobs[@]}"; do
  wait "$job" || die "a key could not be made"
done

{
  echo "# A token of the software token; see softtoken/README.md."
  printf 'firmware=%s\npin=%s\nsopin=%s\n' "$firmware" "$pin" "$soPin"
  printf 'tries=%s\nsotries=%s\nfips=%s\n' "$tries" "$soTries" "$fips"
  for i in "${!keyList[@]}"; do cat "$work/$((i + 1)).line"; done
} >"$work/token/token.conf"
chmod -R u=rwX,go=rX "$work/token"
[ ! -e "$target" ] || mv -T "$target" "$work/replaced"
mv -T "$work/token" "$target"
echo "$target"
