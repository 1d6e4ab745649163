#!/bin/sh
# The enrolment commands of the tool as an administrator would script them: the same calls, made by curl, their answers
# kept and read by jq. The folder's file "settings" says where the service is and how its key is proven:
#
#   base=URL  pin=sha256//...  datacenter=ID  user=NAME:PASSWORD
#
#   enroll.sh FOLDER enroll-client NAME                    as the user
#   enroll.sh FOLDER unenroll-client NAME                  as the user
#   enroll.sh FOLDER enroll-service OWNER NAME SPACE HOST  as the owner
#   enroll.sh FOLDER unenroll-service OWNER NAME           as the owner
set -eu
cd "$1"
shift
. ./settings

# call ARGUMENTS... : one exchange; fails with the status. The server proves its public key and nothing else.
call() { curl --silent --fail --insecure --pinnedpubkey "$pin" "$@"; }

# found PATH JQ-FILTER : from the discovery answer, which is kept for as long as it says.
found() {
    file=cache/$(printf %s "$1" | tr / _)
    if [ ! -f "$file" ] || ! answer=$(jq -er "select(.expiryTime > now) | [$2] | join(\"\\n\")" "$file"); then
        path=$1 filter=$2
        case $path in
        secure/*) set -- --header "Authorization: Bearer $(token v1-service)" ;;
        *) set -- ;;
        esac
        call "$@" "$base/services/services/$path" >"$file"
        answer=$(jq -r "[$filter] | join(\"\\n\")" "$file")
    fi
    printf %s "$answer"
}

# token SERVICE : kept for as long as it lives.
token() {
    kept=cache/token_${identity%%:*}_$1
    if [ ! -f "$kept" ] || ! text=$(jq -er 'select(.expiryTime > now) | .access_token' "$kept"); then
        url=$(found nonsecure/name/aa '.local[0].endpointUrl')
        call --user "$identity" --data "grant_type=client_credentials&servicename=$1" \
            "$url/v1/auth/$tokens/servicetokens" | jq '.expiryTime = now + .expires_in' >"$kept"
        text=$(jq -r .access_token "$kept")
    fi
    printf %s "$text"
}

# talk SERVICE PATH CURL-ARGUMENT... : a call to one of the two services themselves.
talk() {
    service=$1 target=$2
    shift 2
    url=$(found "secure/name/$service" '.local[0].endpointUrl')
    call --header "Authorization: Bearer $(token "$service")" "$@" "$url$target" >/dev/null
}

as_user() { identity=$user tokens=users; }
as_client() { identity=$(cat "clients/$1") tokens=clients; }

mkdir -p cache clients services
command=$1
shift
case $command in
enroll-client)
    as_user
    read -r id </proc/sys/kernel/random/uuid
    read -r secret </proc/sys/kernel/random/uuid
    talk v1-auth /v1/auth/locationawareclients --header 'Content-Type: application/json' --data \
        "$(jq -n --arg id "$id" --arg secret "$secret" --arg datacenter "$datacenter" \
            '{$id, clientSecretId: $secret, datacenterId: $datacenter, rolesPerService: {}}')"
    echo "$id:$secret" >"clients/$1"
    ;;
unenroll-client)
    as_user
    id=$(cut -d : -f 1 "clients/$1")
    talk v1-auth "/v1/auth/clients/$id" --request DELETE
    rm "clients/$1"
    ;;
enroll-service)
    as_client "$1"
    for old in $(found "secure/name/$2/namespace/$3/host/$4" '.local[].id'); do
        talk v1-service "/v1/services/services/$old" --request DELETE
    done
    read -r id </proc/sys/kernel/random/uuid
    talk v1-service /v1/services/services --header 'Content-Type: application/json' --data \
        "$(jq -n --arg id "$id" --arg client "${identity%%:*}" --arg name "$2" --arg space "$3" --arg host "$4" \
            --arg datacenter "$datacenter" --arg url "https://$4/x" \
            '{serviceId: $id, serviceName: $name, clientId: $client, directUrl: $url, endpointUrl: $url,
              serviceHostname: $host, serviceNamespace: $space, datacenterID: $datacenter}')"
    echo "$id" >"services/$1-$2"
    ;;
unenroll-service)
    as_client "$1"
    talk v1-service "/v1/services/services/$(cat "services/$1-$2")" --request DELETE
    rm "services/$1-$2"
    ;;
*)
    echo "enroll.sh: no command '$command'" >&2
    exit 2
    ;;
esac
