-- SPDX-License-Identifier: Apache-2.0
-- Signatures by the devices that they were seen on, the most frequent ones.
SELECT signature, min(kind_of_device) AS kind_of_all, count(*) AS devices,
    sum(episodes_of_device) AS all_episodes, min(first_begin) AS first_seen,
    max(last_begin) AS last_seen, sum(is_open) AS open_devices
FROM (
    SELECT signature, device, min(kind) AS kind_of_device, count(*) AS episodes_of_device,
        min(begin) AS first_begin, max(begin) AS last_begin,
        max(CASE WHEN outcome = 'open' THEN 1 ELSE 0 END) AS is_open
    FROM episodes
    WHERE (:country = '' OR country = :country) AND begin >= :since
        AND (:signature = '' OR signature = :signature)
    GROUP BY signature, device
) AS affected
GROUP BY signature
ORDER BY devices DESC, signature
LIMIT :most
